// The list of all operations, for tests that record every one of them.
//   for (const Operation& o : recordEveryOperation(builder, arrays, 2)) outputs.push_back(o.result);
// Inputs are [n, 4, 9, 21], [n, 3] and [n, 1, 4, 3], in this order. A name stands once for each record that a file may
// hold. Arrays that a builder does not copy at once are those of the second argument.
#pragma once

#include <nolk.h>

#include <vector>

#include "support/Arrays.h"

struct Operation {
    const char* name;
    bool isFixed;  // the bits of the result are the same on every processor
    nolk::TensorX* result;
};

inline std::vector<Operation> recordEveryOperation(nolk::RunnerBuilder& b, Arrays& a, int n) {
    nolk::TensorX* const x = b.input({n, 4, 9, 21, 3});
    nolk::TensorX* const matrix = b.input({n, 3, 1, 1, 1});
    nolk::TensorX* const steps = b.input({n, 1, 4, 3, 3});
    std::vector<float> samples;
    for (int i = 0; i < n; ++i) {
        const std::vector<float> sample = valuesWithSpecials(3, 4 * 9 * 21);
        samples.insert(samples.end(), sample.begin(), sample.end());
    }
    nolk::Tensor constant{{n, 4, 9, 21, 3}, samples.data()};
    nolk::TensorX* const y = b.constTensor(&constant);
    nolk::TensorX* const flat = b.reshape(b.abs(x), {n, 756, 1, 1, 1}, nolk::TensorLayout::nchw);
    nolk::TensorX* parts[] = {x, y, x};
    const nolk::LstmWeights lstm{nolk::Direction::both, 2, 3, 5, a.reals(120), a.reals(200), a.reals(80), true};
    return {
        {"constTensor", true, y},
        {"convolve", false, b.convolve(x, {1, 2, 3, 4}, {2, 1}, {1, 2}, a.weights(2, 3, 2, 2, 3, true))},
        {"deConvolve", true, b.deConvolve(x, {1, 0, 1, 0}, {2, 3}, {1, 1}, a.weights(1, 2, 4, 3, 2, true))},
        {"deConvolve 2x2", true, b.deConvolve(x, {}, {2, 2}, {1, 1}, a.weights(1, 2, 4, 2, 2, false))},
        {"pad", true, b.pad(x, {0, 1, 2, 255})},
        {"transpose", true, b.transpose(x, {{0, 2, 3, 1}})},
        {"slice", true, b.slice(x, {-1, 1, 20, 3})},
        {"fullConnect", false, b.fullConnect(matrix, a.weights(1, 7, 3, 1, 1, true, true))},
        {"fullConnect, indexed", false, b.fullConnect(flat, a.weights(1, 3, 756, 1, 1, false, true))},
        {"batchNormalize", true, b.batchNormalize(x, a.vector(4), a.vector(4), a.vector(4), a.positive(4), 0.001f)},
        {"maxPool", true, b.maxPool(x, {2, 3}, {1, 0, 0, 1}, {2, 2})},
        {"avgPool", true, b.avgPool(x, {3, 2}, {0, 1, 1, 0}, {1, 2})},
        {"relu", true, b.relu(x)},
        {"softmax", false, b.softmax(x, nolk::Axis::c)},
        {"concat", true, b.concat(parts, 3, nolk::Axis::h)},
        {"add", true, b.add(x, y)},
        {"sub", true, b.sub(y, x)},
        {"sigmoid", false, b.sigmoid(x)},
        {"reshape", true, b.reshape(x, {n, 756, 1, 1, 1}, nolk::TensorLayout::nhwc)},
        {"multiply", true, b.multiply(x, y)},
        {"exp", false, b.exp(x)},
        {"divide", true, b.divide(x, y)},
        {"reduce c", true, b.reduce(x, {n, 1, 9, 21, 3}, nolk::BasicOp::mean)},
        {"reduce h, w", true, b.reduce(x, {n, 4, 1, 1, 3}, nolk::BasicOp::mean)},
        {"reduce w", true, b.reduce(x, {n, 4, 9, 1, 3}, nolk::BasicOp::sum)},
        {"reduce all", true, b.reduce(x, {n, 1, 1, 1, 3}, nolk::BasicOp::minimum)},
        {"reduce h", true, b.reduce(x, {n, 4, 1, 21, 3}, nolk::BasicOp::maximum)},
        {"l2normalize", true, b.l2normalize(x)},
        {"clip", true, b.clip(x, -0.5f, 0.25f)},
        {"lstm", false, b.lstm(steps, lstm)},
        {"hardSigmoid", true, b.hardSigmoid(x, 0.2f, 0.3f)},
        {"max", true, b.max(x, y)},
        {"instanceNormalization", true, b.instanceNormalization(x, 0.01f)},
        {"instanceNormalization, scaled", true, b.instanceNormalization(x, a.vector(4), a.vector(4), 0.01f)},
        {"resize nearest", true, b.resize(x, {n, 4, 12, 10, 3}, nolk::ResizeMode::nearest, {})},
        {"resize half-pixel", true, b.resize(x, {n, 4, 7, 33, 3}, nolk::ResizeMode::linear, {})},
        {"resize align-corners", true,
         b.resize(x, {n, 4, 31, 19, 3}, nolk::ResizeMode::linear, nolk::ResizeTransMode::alignCorners)},
        {"abs", true, b.abs(x)},
        {"leakyRelu", true, b.leakyRelu(x, 0.1f)},
        {"tanh", false, b.tanh(x)},
        {"prelu", true, b.prelu(x, a.reals(4), 4)},
        {"matMul", true, b.matMul(x, b.transpose(x, {{0, 1, 3, 2}}))},
    };
}
