// Collects the messages that the library's reader would show to a host.
#pragma once

#include <string>
#include <utility>

#include "model/ErrorSink.h"

class MessageCollector final : public ErrorSink {
public:
    void error(const std::string& text) override { add(text); }
    void warning(const std::string& text) override { add(text); }

    // Returns the messages since the last call, joined by "; ".
    std::string take() { return std::exchange(text_, {}); }

private:
    void add(const std::string& text) { text_ += (text_.empty() ? "" : "; ") + text; }

    std::string text_;
};
