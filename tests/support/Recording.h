// Where a test records operations: a builder, its inputs, and arrays that live until this object goes.
//   Record record = [](Recording& r) { return r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 4, 3, 3, 3, true));
//   }; Recording r(builder, {builder.input(shape)});  X y = record(r);
// All recordings with one seed give the same calls the same values.
#pragma once

#include <nolk.h>

#include <cmath>
#include <deque>
#include <functional>
#include <utility>
#include <vector>

#include "support/values.h"

using Builder = nolk::RunnerBuilder;
using X = nolk::TensorX*;
using Xs = std::vector<X>;
using Shape = nolk::TensorShape;

// Arrays of random values for operations, as long as this object lives.
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

class Recording : public Arrays {
public:
    Recording(Builder& builder, Xs inputs, std::uint32_t seed = 1)
        : Arrays(seed), x(std::move(inputs)), builder_(builder) {}
    Builder* operator->() const { return &builder_; }

    Xs x;

private:
    Builder& builder_;
};

using Record = std::function<X(Recording&)>;
