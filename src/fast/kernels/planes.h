// Arguments of kernels over planes in blocks of 16 channels: [rows, pixels, 16], where neighbouring pixels are 16
// floats apart and rows a stride. Lanes are channels and never mix.
#pragma once

#include <nolk.h>

#include <cstddef>

// Maximum or average over a window that is cut at the borders of the plane, for one block. Positions outside count
// neither for the maximum nor for the average's divisor. An empty window gives what the built-in layer gives.
struct FastPool {
    PoolingType type = POOL_MAX;
    const float* x = nullptr;  // the plane's first pixel
    std::ptrdiff_t xRow = 0;
    int xRows = 0, xPixels = 0;
    float* y = nullptr;
    std::ptrdiff_t yRow = 0;
    int firstRow = 0, rows = 0, pixels = 0;  // computes `rows` output rows; y is the start of row firstRow
    nolk::DimsHW kernel, stride;
    int top = 0, left = 0;
};

// One result for each channel of a block, over all pixels of the plane.
// Sums have 16 partial sums by the pixel's number (row * pixels + pixel) modulo 16, added in a fixed tree. NaN marks a
// result without a value: the next value replaces it.
struct FastPlaneReduction {
    nolk::BasicOp op = nolk::BasicOp::sum;
    const float* x = nullptr;
    std::ptrdiff_t xRow = 0;
    int rows = 0, pixels = 0;
    float* y = nullptr;  // [16]
};

// y = (x - mean) * scale[lane] / sqrt(variance + epsilon) + bias[lane], with mean and variance of the channel's plane.
struct FastPlaneNormalization {
    const float* x = nullptr;
    std::ptrdiff_t xRow = 0;
    float* y = nullptr;  // may be x
    std::ptrdiff_t yRow = 0;
    int rows = 0, pixels = 0;
    const float* scale = nullptr;  // [16]
    const float* bias = nullptr;   // [16]
    float epsilon = 0.0f;
};

// One row of a resized plane: y[p][lane] interpolates x0 and x1, two rows of the source, at the columns left[p] and
// right[p]. The built-in layer's formula decides the order of the operations.
struct FastResizeRow {
    const float* x0 = nullptr;            // null for zeros: there is none if the source has one row only
    const float* x1 = nullptr;            // not read for nearest
    float rowWeight = 0.0f;               // of x1
    const int* left = nullptr;            // [pixels], in pixels; null for zeros: the source has one column only
    const int* right = nullptr;           // [pixels]; not read for nearest
    const float* columnWeight = nullptr;  // [pixels], of right; null for nearest: x0 at left[p] is copied
    float* y = nullptr;
    int pixels = 0;
};

// Between plain planes and blocks. Channels beyond `channels` of the last block are written as zeros in the blocks.
struct FastRelayout {
    float* plain = nullptr;  // read by toBlocks, written by toPlain
    std::ptrdiff_t plainPlane = 0, plainRow = 0;
    float* blocks = nullptr;
    std::ptrdiff_t block = 0, blockRow = 0;  // strides between blocks, and between rows
    int channels = 0, rows = 0, pixels = 0;
};
