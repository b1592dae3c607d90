// Weights with their arrays, filled from a fixed generator.
#pragma once

#include <nolk.h>

#include <vector>

#include "support/values.h"

class OwnedWeights {
public:
    OwnedWeights(int groups, int out, int in, int kernelH, int kernelW, bool bias, Values& values, bool shared = false)
        : weight_(values.reals(static_cast<std::size_t>(shared ? 1 : groups) * out * in * kernelH * kernelW)),
          bias_(values.reals(bias ? static_cast<std::size_t>(shared ? 1 : groups) * out : 0)) {
        weights_ = {groups, out, in, kernelH, kernelW, shared, nullptr, nullptr};
    }

    nolk::Weights get() {
        weights_.weight = weight_.data();
        weights_.bias = bias_.empty() ? nullptr : bias_.data();
        return weights_;
    }

    std::vector<float>& weight() { return weight_; }
    std::vector<float>& bias() { return bias_; }

private:
    std::vector<float> weight_;
    std::vector<float> bias_;
    nolk::Weights weights_;
};
