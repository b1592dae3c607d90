// What build says about a network that it does not accept.
#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "support/Net.h"

// The text of the refusal, or "" when the network was built.
inline std::string refusalOf(Net& net, nolk::TensorX* output) {
    try {
        net.build({output});
    } catch (const std::invalid_argument& e) {
        return e.what();
    }
    return "";
}

inline void expectRefused(Net& net, nolk::TensorX* output, const std::string& text) {
    const std::string refusal = refusalOf(net, output);
    EXPECT_NE(refusal.find(text), std::string::npos) << "refusal: \"" << refusal << "\", expected \"" << text << "\"";
}
