// Element-wise steps over a tensor.
//   in, out [n, c, h, w] in the same layout; out may lie in the memory of in
#pragma once

#include "fast/layers/FastSteps.h"

class FastElementwiseLayer final : public FastLayer {
public:
    FastElementwiseLayer(const FastNode& node, const FastView& input, const FastView& output,
                         const std::vector<FastView>& views)
        : input_(input), output_(output), steps_(node.steps, views, output) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    FastSteps steps_;
};
