#include "fast/layers/FastMatmulLayer.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

namespace {

constexpr int kBlocksOfTask = 2;  // columns of b that are packed at a time, in blocks
constexpr int kPackedBlocksOfTask = 8;

// Copies columns [first, first + count) of b, k rows of width w, to rows of whole blocks, whose other lanes are zeros.
void packBlock(const float* b, int k, int w, int first, float* packed) {
    const int count = std::min(kFastBlock, w - first);
    for (int i = 0; i < k; ++i, packed += kFastBlock) {
        std::memcpy(packed, b + std::ptrdiff_t{i} * w + first, static_cast<std::size_t>(count) * sizeof(float));
        std::fill(packed + count, packed + kFastBlock, 0.0f);
    }
}

// Threads that can work at the same time. Whether a network fits must not depend on the number of threads.
int packingThreads(const nolk::TensorShape& out, int k, int numThreads) {
    constexpr std::int64_t kMostFloats = 1 << 24;
    const std::int64_t tasks = std::int64_t{out.n} * out.c * divideUp(blocksOf(out.w), kBlocksOfTask);
    const std::int64_t fitting = kMostFloats / (std::int64_t{kBlocksOfTask} * kFastBlock * std::max(k, 1));
    return static_cast<int>(std::clamp<std::int64_t>(std::min(tasks, fitting), 1, numThreads));
}

}  // namespace

FastMatmulLayer::FastMatmulLayer(const FastNode& node, const FastMatmul& op, const FastView& a, const FastView& b,
                                 const FastView& output, const std::vector<FastView>& views, std::ptrdiff_t scratch,
                                 int numThreads)
    : a_(a),
      b_(b),
      output_(output),
      steps_(node.steps, views, output),
      scratch_(scratch),
      threads_(packingThreads(output.shape, a.shape.w, numThreads)),
      packedPlanes_(op.samples * output.shape.c) {
    if (!op.constant) return;
    const int k = a.shape.w, w = output.shape.w, blocks = blocksOf(w);
    const std::size_t blockFloats = static_cast<std::size_t>(k) * kFastBlock;
    auto packed = std::make_unique<FastPackedFloats>(static_cast<std::size_t>(packedPlanes_) *
                                                     static_cast<std::size_t>(blocks) * blockFloats);
    float* to = packed->data();
    for (int plane = 0; plane < packedPlanes_; ++plane)
        for (int block = 0; block < blocks; ++block, to += blockFloats)
            packBlock(op.constant + std::ptrdiff_t{plane} * k * w, k, w, block * kFastBlock, to);
    packed_ = shareFloats(std::move(packed));
}

// The taps, then the packed columns of each thread.
std::int64_t FastMatmulLayer::scratchFloats(const FastMatmul& op, const nolk::TensorShape& output, int k,
                                            int numThreads) {
    static_assert(sizeof(std::int32_t) == sizeof(float));
    const int threads = op.constant ? 0 : packingThreads(output, k, numThreads);
    return (std::int64_t{kBlocksOfTask} * kFastBlock * threads + 1) * k;
}

void FastMatmulLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int k = a_.shape.w, planes = out.n * out.c, blocks = blocksOf(out.w);
    const int step = packed_ ? kPackedBlocksOfTask : kBlocksOfTask, ranges = divideUp(blocks, step);
    float* const scratch = run.arena.floats.data() + scratch_;
    auto* const taps = reinterpret_cast<std::int32_t*>(scratch);
    std::iota(taps, taps + k, 0);
    const std::int64_t products = std::int64_t{planes} * out.h * out.w * k;
    const auto part = [&](int task, const float* packed) {
        const int firstBlock = task % ranges * step;
        return Part{task / ranges, firstBlock * kFastBlock, std::min(step, blocks - firstBlock), packed, taps};
    };
    if (packed_)
        run.team.forEach(planes * ranges, products / (std::int64_t{planes} * ranges * 4), [&](int task) {
            const int plane = task / ranges % packedPlanes_;
            const std::ptrdiff_t block = std::ptrdiff_t{plane} * blocks + task % ranges * step;
            multiply(run, part(task, packed_->data() + block * k * kFastBlock));
        });
    else
        // Each thread has packed columns of its own, and every threads_-th task.
        run.team.forEach(threads_, products / (std::int64_t{4} * threads_), [&](int thread) {
            float* const packed = scratch + (std::ptrdiff_t{thread} * kBlocksOfTask * kFastBlock + 1) * k;
            for (std::int64_t task = thread; task < planes * ranges; task += threads_) {
                const Part columns = part(static_cast<int>(task), packed);
                const float* const b = b_.base(run) + columns.plane * b_.strides.plane;
                for (int block = 0; block < columns.blocks; ++block)
                    packBlock(b, k, out.w, columns.firstColumn + block * kFastBlock,
                              packed + std::ptrdiff_t{block} * k * kFastBlock);
                multiply(run, columns);
            }
        });
    if (!steps_.empty())
        run.team.forEach(planes, output_.strides.plane,
                         [&](int task) { steps_.applyRows(run, task / out.c, task % out.c, 0, out.h); });
}

void FastMatmulLayer::multiply(const FastRun& run, const Part& part) const {
    const nolk::TensorShape& out = output_.shape;
    FastProduct call;
    call.blocks = part.blocks;
    call.x = a_.base(run) + part.plane * a_.strides.plane;
    call.xStep = call.tapCount = a_.shape.w;
    call.taps = part.taps;
    call.weights = part.packed;
    call.y = output_.base(run) + part.plane * output_.strides.plane + part.firstColumn;
    call.yStep = out.w;
    call.yBlock = kFastBlock;
    call.rows = 1;
    call.pixels = out.h;
    call.lanes = std::min(kFastBlock, out.w - part.firstColumn - (part.blocks - 1) * kFastBlock);
    call.low = -std::numeric_limits<float>::infinity();
    call.high = std::numeric_limits<float>::infinity();
    run.kernels.product(call);
}
