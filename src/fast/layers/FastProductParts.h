// The sums of products of a convolution or full connection, as parts that the product kernel can do: the taps of a
// group of channels, and blocks of its outputs.
//   FastProductParts parts = FastProductParts::pack(weights, tapsOf(op, input));
//   FastProduct call;  parts.set(call, parts.parts[0], 0, parts.parts[0].blocks);  run.kernels.product(call);
// A group whose outputs are not whole blocks has parts of one block with fewer lanes. The packed weights are shared
// with other runners in the process.
#pragma once

#include <cstdint>
#include <vector>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"
#include "fast/layers/FastPackedWeights.h"

// Outputs that lie next to each other and read the same taps.
struct FastProductPart {
    int taps = 0;        // index of the list of taps
    int firstBlock = 0;  // of the output
    int blocks = 1;
    int firstLane = 0;                     // in its only block, or 0
    int lanes = kFastBlock;                // of the last block
    std::ptrdiff_t weights = 0, bias = 0;  // offsets in the packed arrays

    int firstOutput() const { return firstBlock * kFastBlock + firstLane; }
};

struct FastProductParts {
    std::vector<std::vector<std::int32_t>> taps;  // offsets of each group's inputs, from a window's first channel
    std::vector<FastProductPart> parts;           // by output
    FastPacked weights;                           // [block, tap, 16] of each part
    FastPacked bias;                              // [block, 16] of each part

    // w: weights [group, out, in, kernelH, kernelW]. taps: of each group, or of all.
    static FastProductParts pack(const nolk::Weights& w, std::vector<std::vector<std::int32_t>> taps);

    // Floats that `pack` allocates, and so many lists of taps take. A double, because some products of extents are
    // bounded by nothing but memory.
    static double packedFloats(const nolk::Weights& w, std::int64_t lists = 1);

    // The blocks [begin, end) of part, in terms of the kernel: sets taps, weights, bias, blocks and lanes.
    void set(FastProduct& call, const FastProductPart& part, int begin, int end) const;
};

// The taps of a convolution that reads its input where it lies; one list for each group.
std::vector<std::vector<std::int32_t>> tapsOf(const FastConvolution& op, const FastView& input);
