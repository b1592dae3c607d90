#include "fast/layers/FastGatheredConvolutionLayer.h"

#include <algorithm>
#include <numeric>

namespace {

constexpr std::int64_t kWindowFloats = 64 * 1024;  // of all windows that are gathered at a time
constexpr std::int64_t kMostPixels = 84;

std::int64_t windowLength(const nolk::Weights& w) { return std::int64_t{w.inChannels} * w.kernelH * w.kernelW; }

std::vector<std::vector<std::int32_t>> consecutive(std::int64_t count) {
    std::vector<std::int32_t> taps(static_cast<std::size_t>(count));
    std::iota(taps.begin(), taps.end(), 0);
    return {taps};
}

}  // namespace

int FastGatheredConvolutionLayer::tilePixels(const FastConvolution& op, const nolk::TensorShape& output) {
    const std::int64_t fitting = kWindowFloats / std::max<std::int64_t>(windowLength(op.weights), 1);
    return static_cast<int>(std::clamp<std::int64_t>(std::min<std::int64_t>(fitting, output.w), 1, kMostPixels));
}

std::int64_t FastGatheredConvolutionLayer::scratchFloats(const FastConvolution& op, const nolk::TensorShape& output,
                                                         int numThreads) {
    return windowLength(op.weights) * tilePixels(op, output) * buffers(op, output, numThreads);
}

// Threads that compute at the same time. Whether a network fits must not depend on the number of threads.
int FastGatheredConvolutionLayer::buffers(const FastConvolution& op, const nolk::TensorShape& output, int numThreads) {
    constexpr std::int64_t kMostFloats = 1 << 24;
    const std::int64_t floats = std::max<std::int64_t>(windowLength(op.weights) * tilePixels(op, output), 1);
    return static_cast<int>(std::clamp<std::int64_t>(kMostFloats / floats, 1, numThreads));
}

FastGatheredConvolutionLayer::FastGatheredConvolutionLayer(const FastNode& node, const FastConvolution& op,
                                                           const FastView& input, const FastView& output,
                                                           const std::vector<FastView>& views, std::ptrdiff_t scratch,
                                                           int numThreads)
    : input_(input),
      output_(output),
      padding_(op.padding),
      stride_(op.stride),
      dilation_(op.dilation),
      kernel_{op.weights.kernelH, op.weights.kernelW},
      inChannels_(op.weights.inChannels),
      groups_(windowLength(op.weights) == 0 ? 1 : op.weights.groups),
      parts_(FastProductParts::pack(op.weights, consecutive(windowLength(op.weights)))),
      epilogue_(node, views, output),
      scratch_(scratch),
      tile_(tilePixels(op, output.shape)),
      threads_(buffers(op, output.shape, numThreads)) {}

void FastGatheredConvolutionLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    // Each thread has windows of its own, and every threads_-th row.
    const std::ptrdiff_t windows = std::ptrdiff_t{tile_} * inChannels_ * kernel_.h * kernel_.w;
    run.team.forEach(threads_, std::int64_t{out.n} * out.h * out.w * windows / tile_, [&](int thread) {
        float* const own = run.arena.floats.data() + scratch_ + thread * windows;
        for (int n = 0; n < out.n; ++n)
            for (std::int64_t next = thread; next < out.h; next += threads_) {
                const auto row = static_cast<int>(next);
                for (int g = 0; g < groups_; ++g) compute(run, n, g, row, own);
                for (int plane = 0; plane < output_.strides.planes; ++plane) {
                    epilogue_.rest.applyRows(run, n, plane, row, 1);
                    output_.clearBorder(output_.plane(run, n, plane), row, row + 1);
                }
            }
    });
}

void FastGatheredConvolutionLayer::compute(const FastRun& run, int sample, int group, int row, float* windows) const {
    const std::ptrdiff_t length = std::ptrdiff_t{inChannels_} * kernel_.h * kernel_.w;
    const int outChannels = output_.shape.c / groups_, begin = group * outChannels;
    const auto isBefore = [](const FastProductPart& part, int channel) { return part.firstOutput() < channel; };
    const auto firstPart = std::lower_bound(parts_.parts.begin(), parts_.parts.end(), begin, isBefore);
    const auto lastPart = std::lower_bound(firstPart, parts_.parts.end(), begin + outChannels, isBefore);
    for (int first = 0, pixels = 0; first < output_.shape.w; first += pixels) {
        pixels = std::min(tile_, output_.shape.w - first);
        FastProduct call;
        call.x = windows;
        call.xStep = length;
        call.rows = 1;
        call.pixels = pixels;
        for (int i = 0; i < pixels && length > 0; ++i)
            gather(input_.base(run) + sample * input_.strides.sample, group, row, first + i, windows + i * length);
        call.yStep = output_.strides.pixel;
        call.yBlock = output_.strides.plane;
        call.addedStep = epilogue_.added.strides.pixel;
        call.addedBlock = epilogue_.added.strides.plane;
        call.low = epilogue_.low;
        call.high = epilogue_.high;
        for (auto it = firstPart; it != lastPart; ++it) {
            const FastProductPart& part = *it;
            parts_.set(call, part, 0, part.blocks);
            if (output_.layout == FastLayout::plain) call.lanes = 1;
            call.y = output_.plane(run, sample, part.firstBlock) + row * output_.strides.row + first * call.yStep +
                     part.firstLane;
            if (epilogue_.hasAdded)
                call.added = epilogue_.added.plane(run, sample, part.firstBlock) + row * epilogue_.added.strides.row +
                             first * call.addedStep + part.firstLane;
            run.kernels.product(call);
        }
    }
}

// Windows may lie anywhere, so positions are computed in 64 bits.
void FastGatheredConvolutionLayer::gather(const float* sample, int group, int row, int column, float* window) const {
    const nolk::TensorShape& in = input_.shape;
    for (int i = 0; i < inChannels_; ++i) {
        const float* const plane = sample + (std::ptrdiff_t{group} * inChannels_ + i) * input_.strides.plane;
        for (int kh = 0; kh < kernel_.h; ++kh) {
            const std::int64_t h = std::int64_t{row} * stride_.h - padding_.top + std::int64_t{kh} * dilation_.h;
            for (int kw = 0; kw < kernel_.w; ++kw) {
                const std::int64_t w =
                    std::int64_t{column} * stride_.w - padding_.left + std::int64_t{kw} * dilation_.w;
                const bool inside = h >= 0 && h < in.h && w >= 0 && w < in.w;
                *window++ = inside ? plane[h * input_.strides.row + w] : 0.0f;
            }
        }
    }
}
