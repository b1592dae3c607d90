// The table of operations. The reader of model files, their writer, listings and checks, and the tests' log of calls
// all follow it: a new operation is one row here, beside its method of nolk::RunnerBuilder.
//   if (const Operation* operation = findOperation(opCode)) ...
// Rows are in the order of their codes. A field's name is what messages call it.
#pragma once

#include <iterator>

#include "model/Operation.h"

namespace operation {

using nolk::RunnerBuilder;
using nolk::TensorX;

// Functions for the methods whose parameters have another form in the file.

inline TensorX* constTensor(RunnerBuilder& builder, nolk::Tensor values) { return builder.constTensor(&values); }

inline TensorX* fullConnect(RunnerBuilder& builder, TensorX* x, SharedWeights weights) {
    return builder.fullConnect(x, weights.weights);
}

// The array is null when there are no inputs.
inline TensorX* concat(RunnerBuilder& builder, std::vector<TensorX*> inputs, nolk::Axis axis) {
    return builder.concat(inputs.empty() ? nullptr : inputs.data(), static_cast<int>(inputs.size()), axis);
}

// The older record of resize, which has no transMode.
inline TensorX* resizeAligned(RunnerBuilder& builder, TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode) {
    return builder.resize(x, shape, mode, nolk::ResizeTransMode::alignCorners);
}

inline TensorX* prelu(RunnerBuilder& builder, TensorX* x, nolk::Vector slopes) {
    return builder.prelu(x, slopes.data, slopes.count);
}

// The two overloads of one method.
constexpr TensorX* (RunnerBuilder::*kInstanceNormalization)(TensorX*, float) = &RunnerBuilder::instanceNormalization;
constexpr TensorX* (RunnerBuilder::*kScaledInstanceNormalization)(TensorX*, nolk::Vector, nolk::Vector,
                                                                  float) = &RunnerBuilder::instanceNormalization;

inline constexpr Operation kTable[] = {
    row<&RunnerBuilder::input>(0, "input", "shape"),
    row<&constTensor>(1, "constTensor", "values"),
    row<&RunnerBuilder::convolve>(2, "convolve", "padding", "stride", "dilation", "weights"),
    row<&RunnerBuilder::pad>(3, "pad", "padding"),
    row<&RunnerBuilder::transpose>(4, "transpose", "axes"),
    row<&RunnerBuilder::slice>(5, "slice", "position"),
    row<&fullConnect>(6, "fullConnect", "weights"),
    row<&RunnerBuilder::batchNormalize>(7, "batchNormalize", "scale", "bias", "mean", "variance", "epsilon"),
    row<&RunnerBuilder::maxPool>(8, "maxPool", "kernel", "padding", "stride"),
    row<&RunnerBuilder::avgPool>(9, "avgPool", "kernel", "padding", "stride"),
    row<&RunnerBuilder::relu>(10, "relu"),
    row<&RunnerBuilder::softmax>(11, "softmax", "axis"),
    row<&concat>(12, "concat", "axis"),
    row<&RunnerBuilder::add>(13, "add"),
    row<&RunnerBuilder::sub>(14, "sub"),
    row<&RunnerBuilder::sigmoid>(15, "sigmoid"),
    row<&RunnerBuilder::reshape>(16, "reshape", "shape", "layout"),
    row<&RunnerBuilder::multiply>(17, "multiply"),
    row<&RunnerBuilder::exp>(18, "exp"),
    row<&RunnerBuilder::divide>(19, "divide"),
    row<&RunnerBuilder::reduce>(20, "reduce", "shape", "operator"),
    row<&RunnerBuilder::l2normalize>(21, "l2normalize"),
    {"output", 22, 1, 0, {}, nullptr, 0},
    row<&RunnerBuilder::clip>(23, "clip", "min", "max"),
    row<&RunnerBuilder::lstm>(24, "lstm", "weights"),
    row<&RunnerBuilder::hardSigmoid>(25, "hardSigmoid", "alpha", "beta"),
    row<&RunnerBuilder::max>(26, "max"),
    row<kInstanceNormalization>(27, "instanceNormalization", "epsilon"),
    row<&resizeAligned>(28, "resize", "shape", "mode"),
    row<&RunnerBuilder::abs>(29, "abs"),
    row<&RunnerBuilder::leakyRelu>(30, "leakyRelu", "alpha"),
    row<&RunnerBuilder::tanh>(31, "tanh"),
    row<&RunnerBuilder::deConvolve>(32, "deConvolve", "padding", "stride", "dilation", "weights"),
    row<&RunnerBuilder::resize>(33, "resize", "shape", "mode", "transMode"),
    row<kScaledInstanceNormalization>(34, "instanceNormalization", "scale", "bias", "epsilon"),
    row<&prelu>(35, "prelu", "slopes"),
    row<&RunnerBuilder::matMul>(36, "matMul"),
};

constexpr bool isInOrder() {
    for (std::size_t i = 0; i < std::size(kTable); ++i)
        if (kTable[i].code != static_cast<int>(i)) return false;
    return true;
}
static_assert(isInOrder(), "the place of a row is its code");

constexpr bool areKeysDistinct() {
    for (const Operation& a : kTable)
        for (const Operation& b : kTable)
            if (a.code != b.code && a.key == b.key) return false;
    return true;
}
static_assert(areKeysDistinct(), "a function has one row, and two functions have two keys");

constexpr std::size_t placeOf(std::uint64_t key) {
    std::size_t place = 0;
    while (kTable[place].key != key) ++place;  // an index beyond the table is a compile error
    return place;
}

}  // namespace operation

// The row with that code; null when there is none.
inline const Operation* findOperation(int code) {
    return code >= 0 && code < static_cast<int>(std::size(operation::kTable)) ? &operation::kTable[code] : nullptr;
}

// The row of a function. A function that is not in the table does not compile.
template <auto function>
constexpr const Operation& operationOf() {
    constexpr std::size_t place = operation::placeOf(operation::kKeyOf<function>);
    return operation::kTable[place];
}

template <auto function>
inline constexpr int kCodeOf = operationOf<function>().code;
