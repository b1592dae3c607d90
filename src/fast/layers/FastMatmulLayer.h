// The product [h, k] * [k, w] of every plane, then the steps of the node.
//   a [n, c, h, k], b [n, c, k, w], out [n, c, h, w], all plain
// Every output is one chain of fused multiply-adds over k.
#pragma once

#include "fast/layers/FastSteps.h"

class FastMatmulLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(b, numThreads).
    FastMatmulLayer(const FastNode& node, const FastView& a, const FastView& b, const FastView& output,
                    const std::vector<FastView>& views, std::ptrdiff_t scratch, int numThreads);

    static std::int64_t scratchFloats(const nolk::TensorShape& b, int numThreads);

    void run(const FastRun& run) const override;

private:
    FastView a_, b_, output_;
    FastSteps steps_;
    std::ptrdiff_t scratch_;
    int threads_;
};
