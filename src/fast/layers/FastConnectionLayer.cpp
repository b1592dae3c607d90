#include "fast/layers/FastConnectionLayer.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "math/quotient.h"

namespace {

constexpr int kBlocksOfTask = 8;

// Blocks may have a border, which another consumer needs.
FastProductParts packed(const nolk::Weights& w, const FastView& input) {
    std::vector<std::int32_t> taps(static_cast<std::size_t>(w.inChannels));
    std::iota(taps.begin(), taps.end(), 0);
    if (input.layout == FastLayout::blocks)
        for (std::int32_t& tap : taps)
            tap = static_cast<std::int32_t>(tap / kFastBlock * input.strides.plane + tap % kFastBlock);
    return FastProductParts::pack(w, {taps});
}

}  // namespace

FastConnectionLayer::FastConnectionLayer(const FastNode& node, const FastConnection& op, const FastView& input,
                                         const FastView& output, const std::vector<FastView>& views)
    : input_(input),
      output_(output),
      rows_(op.weights.groups * input.shape.n),
      outputs_(op.weights.outChannels),
      parts_(packed(weightsOf(op, input.shape), input)),
      steps_(node.steps, views, output) {}

nolk::Weights FastConnectionLayer::weightsOf(const FastConnection& op, const nolk::TensorShape& input) {
    nolk::Weights w = op.weights;
    w.groups = 1;
    w.inChannels = std::max(quotient(input.c, op.weights.groups), 0);
    w.kernelH = w.kernelW = 1;
    return w;
}

void FastConnectionLayer::run(const FastRun& run) const {
    const FastProductPart& part = parts_.parts.front();
    const int tasks = divideUp(part.blocks, kBlocksOfTask);
    const auto products = static_cast<std::int64_t>(parts_.taps.front().size()) * rows_ * kBlocksOfTask * kFastBlock;
    run.team.forEach(tasks, products / 4, [&](int task) {
        const int begin = task * kBlocksOfTask, end = std::min(begin + kBlocksOfTask, part.blocks);
        FastProduct call;
        parts_.set(call, part, begin, end);
        call.x = input_.plane(run, 0, 0);
        call.xStep = input_.layout == FastLayout::blocks ? input_.strides.sample : call.tapCount;
        call.rows = 1;
        call.pixels = rows_;
        call.y = output_.base(run) + begin * kFastBlock;
        call.yBlock = kFastBlock;
        call.yStep = outputs_;
        call.lanes = std::min(kFastBlock, outputs_ - (end - 1) * kFastBlock);
        call.low = -std::numeric_limits<float>::infinity();
        call.high = std::numeric_limits<float>::infinity();
        run.kernels.product(call);
    });
    if (!steps_.empty())
        for (int n = 0; n < output_.shape.n; ++n) steps_.applyChannels(run, n);
}
