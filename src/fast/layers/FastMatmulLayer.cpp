#include "fast/layers/FastMatmulLayer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

namespace {

constexpr int kBlocksOfTask = 2;  // columns of b that are packed at a time, in blocks

// Copies columns [first, first + count) of b, k rows of width w, to rows of whole blocks.
void packBlock(const float* b, int k, int w, int first, float* packed) {
    const int count = std::min(kFastBlock, w - first);
    for (int i = 0; i < k; ++i, packed += kFastBlock) {
        std::memcpy(packed, b + std::ptrdiff_t{i} * w + first, static_cast<std::size_t>(count) * sizeof(float));
        std::fill(packed + count, packed + kFastBlock, 0.0f);
    }
}

}  // namespace

FastMatmulLayer::FastMatmulLayer(const FastNode& node, const FastView& a, const FastView& b, const FastView& output,
                                 const std::vector<FastView>& views, std::ptrdiff_t scratch, int numThreads)
    : a_(a), b_(b), output_(output), steps_(node.steps, views, output), scratch_(scratch), threads_(numThreads) {}

std::int64_t FastMatmulLayer::scratchFloats(const nolk::TensorShape& b, int numThreads) {
    static_assert(sizeof(std::int32_t) == sizeof(float));
    return (std::int64_t{kBlocksOfTask} * kFastBlock * numThreads + 1) * b.h;  // packed columns, and the taps
}

void FastMatmulLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int k = a_.shape.w, ranges = (blocksOf(out.w) + kBlocksOfTask - 1) / kBlocksOfTask;
    const int tasks = out.n * out.c * ranges;
    float* const scratch = run.arena.floats.data() + scratch_;
    auto* const taps =
        reinterpret_cast<std::int32_t*>(scratch + std::ptrdiff_t{threads_} * kBlocksOfTask * kFastBlock * k);
    std::iota(taps, taps + k, 0);
    // Each thread has packed columns of its own, and every threads_-th task.
    run.team.forEach(threads_, std::int64_t{out.n} * out.c * out.h * out.w * k / (4 * threads_), [&](int thread) {
        float* const packed = scratch + std::ptrdiff_t{thread} * kBlocksOfTask * kFastBlock * k;
        for (int task = thread; task < tasks; task += threads_) {
            const std::ptrdiff_t plane = task / ranges;
            const int first = task % ranges * kBlocksOfTask * kFastBlock;
            FastProduct call;
            call.blocks = std::min(kBlocksOfTask, blocksOf(out.w - first));
            const float* const b = b_.base(run) + plane * b_.strides.plane;
            for (int block = 0; block < call.blocks; ++block)
                packBlock(b, k, out.w, first + block * kFastBlock, packed + std::ptrdiff_t{block} * k * kFastBlock);
            call.x = a_.base(run) + plane * a_.strides.plane;
            call.xStep = k;
            call.taps = taps;
            call.tapCount = k;
            call.weights = packed;
            call.y = output_.base(run) + plane * output_.strides.plane + first;
            call.yStep = out.w;
            call.yBlock = kFastBlock;
            call.rows = 1;
            call.pixels = out.h;
            call.lanes = std::min(kFastBlock, out.w - first - (call.blocks - 1) * kFastBlock);
            call.low = -std::numeric_limits<float>::infinity();
            call.high = std::numeric_limits<float>::infinity();
            run.kernels.product(call);
        }
    });
    if (!steps_.empty())
        run.team.forEach(out.n * out.c, output_.strides.plane,
                         [&](int task) { steps_.applyRows(run, task / out.c, task % out.c, 0, out.h); });
}
