// The product [h, k] * [k, w] of every plane, then the steps of the node.
//   a [n, c, h, k], b [n, c, k, w], out [n, c, h, w], all plain
// A constant b is packed once, and only one sample of it if all are equal; of any other, each run packs a few columns
// at a time. Every output is one chain of fused multiply-adds over k.
#pragma once

#include "fast/layers/FastPackedWeights.h"
#include "fast/layers/FastSteps.h"

class FastMatmulLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats.
    // b is ignored if op has a constant.
    FastMatmulLayer(const FastNode& node, const FastMatmul& op, const FastView& a, const FastView& b,
                    const FastView& output, const std::vector<FastView>& views, std::ptrdiff_t scratch, int numThreads);

    static std::int64_t scratchFloats(const FastMatmul& op, const nolk::TensorShape& output, int k, int numThreads);

    void run(const FastRun& run) const override;

private:
    // b [k, w] of one plane and some columns
    struct Part {
        int plane, firstColumn, blocks;
        const float* packed;
        const std::int32_t* taps;
    };

    void multiply(const FastRun& run, const Part& part) const;

    FastView a_, b_, output_;
    FastSteps steps_;
    std::ptrdiff_t scratch_;
    int threads_;        // that pack columns at the same time
    FastPacked packed_;  // [plane, block, k, 16] of a constant b, or null
    int packedPlanes_;   // of one sample, or of all
};
