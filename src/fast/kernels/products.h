// Arguments of the kernels that do most of a network's work: sums of products whose order is fixed, so that every
// processor gives the same bits. 16 outputs lie next to each other and form a block; a register holds some of them or
// all, and lanes never mix. Every output is one chain of fused multiply-adds in the order of the taps.
//   A convolution is a list of taps: offsets in the input, in the order input channel, kernel row, kernel column.
// Kernels are fastest if all blocks begin at addresses that 64 bytes divide.
// Pointers are borrowed for the call. Strides count floats. Outputs do not overlap the inputs, except where noted.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr int kFastBlock = 16;  // floats of a block

// Some of the taps of an input channel, which all channels have in common.
struct FastTapRange {
    int first = 0, count = 0;
    bool operator==(const FastTapRange& other) const { return first == other.first && count == other.count; }
};

// Which kernel rows of a convolution lie inside the input.
struct FastKernelRows {
    int count = 0, columns = 1;  // of the kernel; a count of 0 if all rows lie inside
    int stride = 1, dilation = 1, inputRows = 0;
    std::int64_t top = 0;  // input row of the first kernel row, for output row 0

    int channelTaps() const { return count * columns; }
    FastTapRange tapsOf(int row) const {
        const std::int64_t first = top + std::int64_t{row} * stride;
        const int begin = kernelRowAt(-first), end = kernelRowAt(inputRows - first);
        return {begin * columns, (end - begin) * columns};
    }

private:
    // The first kernel row that lies so many input rows below kernel row 0, or more.
    int kernelRowAt(std::int64_t distance) const {
        const std::int64_t row = distance > 0 ? (distance + dilation - 1) / dilation : 0;
        return row < count ? static_cast<int>(row) : count;
    }
};

// y[block][row][pixel][lane] = limit(bias[block][lane] + sum over k of
//                                    x[row * xRow + pixel * xStep + taps[k]] * weights[block][k][lane]
//                                    + added[block][row][pixel][lane])
// The limit is v < low ? low : v > high ? high : v, so NaN stays; -infinity and infinity for none.
struct FastProduct {
    const float* x = nullptr;
    std::ptrdiff_t xRow = 0;
    std::ptrdiff_t xStep = 0;  // any; 16 is the fastest
    const std::int32_t* taps = nullptr;
    int tapCount = 0;
    FastKernelRows kernelRows;       // taps outside the input are left out; channelTaps() divides tapCount
    const float* weights = nullptr;  // [blocks, tapCount, 16]
    const float* bias = nullptr;     // [blocks, 16]; null for zeros
    bool carryOn = false;            // the sums start from the values of y instead of the bias
    float* y = nullptr;
    std::ptrdiff_t yBlock = 0, yRow = 0, yStep = 0;
    const float* added = nullptr;  // null for none; may be y
    std::ptrdiff_t addedBlock = 0, addedRow = 0, addedStep = 0;
    int blocks = 0, rows = 0, pixels = 0;
    int lanes = kFastBlock;  // lanes of the last block that are read from y and added and written, 1 to 16
    float low = 0.0f, high = 0.0f;
};

// One block of channels, each with a kernel of its own:
// y[row][pixel][lane] = limit(bias[lane] + sum over kh, kw of
//     x[(row * strideH + kh * dilationH) * xRow + (pixel * strideW + kw * dilationW) * 16 + lane] *
//     weights[kh][kw][lane] + added[row][pixel][lane])
struct FastDepthwise {
    const float* x = nullptr;
    std::ptrdiff_t xRow = 0;
    const float* weights = nullptr;  // [kernelH, kernelW, 16]
    const float* bias = nullptr;     // [16]; null for zeros
    float* y = nullptr;
    std::ptrdiff_t yRow = 0;
    const float* added = nullptr;  // null for none
    std::ptrdiff_t addedRow = 0;
    int rows = 0, pixels = 0;
    int kernelH = 0, kernelW = 0, strideH = 1, strideW = 1, dilationH = 1, dilationW = 1;
    float low = 0.0f, high = 0.0f;
};
