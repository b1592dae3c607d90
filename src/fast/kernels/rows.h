// Arguments of kernels over plain, dense tensors seen as [outer, extent, inner], which work along `extent`. Sums along
// a contiguous extent (inner = 1) have 16 partial sums by the index modulo 16, added in a fixed tree; with inner > 1
// each sum is one chain. The extent is at least 1.
#pragma once

#include <nolk.h>

#include <cstdint>

struct FastSoftmax {
    const float* x = nullptr;
    float* y = nullptr;  // may be x
    int outer = 0, extent = 0, inner = 0;
};

// y [outer, inner]. NaN marks a result without a value: the next value replaces it. Without any value it is NaN.
// overChannels stands for the other formula of the built-in layer, for channels alone: a sum keeps NaN, a maximum and a
// minimum ignore NaN unless it is the first value, and a mean multiplies by 1 / extent instead of dividing by extent.
struct FastReduction {
    nolk::BasicOp op = nolk::BasicOp::sum;
    bool overChannels = false;
    const float* x = nullptr;
    float* y = nullptr;
    int outer = 0, extent = 0, inner = 0;
};

// y = x / sqrt(sum of x^2 along the extent)
struct FastL2Normalization {
    const float* x = nullptr;
    float* y = nullptr;  // may be x
    int outer = 0, extent = 0, inner = 0;
};

// `outer` rows of `extent` elements: y = (x - mean) * scale / sqrt(variance + epsilon) + bias, with the row's mean and
// variance, and scale and bias of the row.
struct FastRowNormalization {
    const float* x = nullptr;
    float* y = nullptr;  // may be x
    int outer = 0, extent = 0;
    const float* scale = nullptr;  // [outer]
    const float* bias = nullptr;   // [outer]
    float epsilon = 0.0f;
};

// One step of an LSTM: cell = sigmoid(forget) * cell + sigmoid(input) * tanh(candidate);
// hidden = sigmoid(output) * tanh(cell), in the built-in layer's order of operations.
struct FastLstmCell {
    const float* gates = nullptr;  // input, output, forget, candidate: `stride` floats apart
    int stride = 0;
    float* cell = nullptr;
    float* hidden = nullptr;
    int count = 0;
};

// y[c * yRow + r] = x[r * xRow + c]
struct FastTranspose {
    const float* x = nullptr;
    std::int64_t xRow = 0;
    float* y = nullptr;
    std::int64_t yRow = 0;
    int rows = 0, columns = 0;  // of x
};
