// Arrays of random values for the operations that are being recorded. They live as long as this object.
//   Arrays a(7);  b.convolve(x, {}, {1, 1}, {1, 1}, a.weights(1, 4, 3, 3, 3, true));
// Two objects with one seed give the same values for the same calls.
#pragma once

#include <nolk.h>

#include <cmath>
#include <deque>
#include <vector>

#include "support/values.h"

class Arrays {
public:
    explicit Arrays(std::uint32_t seed) : random_(seed) {}
    // What still reads the arrays afterwards gets wrong results, or is found by the sanitizers.
    ~Arrays() {
        for (std::vector<float>& array : arrays_) array.assign(array.size(), 99.0f);
    }
    Arrays(const Arrays&) = delete;
    Arrays& operator=(const Arrays&) = delete;

    float* reals(int count) { return arrays_.emplace_back(random_.reals(static_cast<std::size_t>(count))).data(); }
    nolk::Vector vector(int count) { return {count, reals(count)}; }
    nolk::Vector positive(int count) {
        const nolk::Vector v = vector(count);
        for (int i = 0; i < count; ++i) v.data[i] = 0.6f + std::fabs(v.data[i]);
        return v;
    }
    nolk::Weights weights(int groups, int out, int in, int kernelH, int kernelW, bool bias, bool shared = false) {
        const int outputs = (shared ? 1 : groups) * out;
        float* const weight = reals(outputs * in * kernelH * kernelW);
        return {groups, out, in, kernelH, kernelW, shared, weight, bias ? reals(outputs) : nullptr};
    }

private:
    Values random_;
    std::deque<std::vector<float>> arrays_;
};
