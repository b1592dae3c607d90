#include "fast/layers/FastDepthwiseLayer.h"

#include <algorithm>

namespace {

// Output rows of a task: enough to be worth the call, few enough for their steps to find them in the cache.
constexpr int kPiecePixels = 1024;

}  // namespace

FastDepthwiseLayer::FastDepthwiseLayer(const FastNode& node, const FastConvolution& op, const FastView& input,
                                       const FastView& output, const std::vector<FastView>& views)
    : input_(input),
      output_(output),
      kernel_{op.weights.kernelH, op.weights.kernelW},
      stride_(op.stride),
      dilation_(op.dilation),
      window_(-op.padding.top * input.strides.row - op.padding.left * input.strides.pixel),
      epilogue_(node, views, output) {
    const nolk::Weights& w = op.weights;
    const auto taps = static_cast<std::size_t>(w.kernelH) * static_cast<std::size_t>(w.kernelW);
    const auto lanes = static_cast<std::size_t>(output.strides.planes) * kFastBlock;
    auto weights = std::make_unique<FastPackedFloats>(lanes * taps);
    auto bias = std::make_unique<FastPackedFloats>(lanes);
    for (std::size_t c = 0; c < static_cast<std::size_t>(w.groups); ++c) {
        const std::size_t block = c / kFastBlock, lane = c % kFastBlock, row = w.shared ? 0 : c;
        for (std::size_t k = 0; k < taps; ++k)
            storeNonZero(w.weight[row * taps + k], weights->data()[(block * taps + k) * kFastBlock + lane]);
        if (w.bias) bias->data()[c] = w.bias[row];
    }
    weights_ = shareFloats(std::move(weights));
    bias_ = shareFloats(std::move(bias));
}

void FastDepthwiseLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int rows = std::clamp(kPiecePixels / out.w, 1, out.h);
    const int pieces = divideUp(out.h, rows), planes = output_.strides.planes;
    const std::int64_t products = std::int64_t{rows} * out.w * kFastBlock * std::min(kernel_.h * kernel_.w, 256);
    run.team.forEach(out.n * planes * pieces, products / 4, [&](int task) {
        const int piece = task % pieces, plane = task / pieces % planes;
        compute(run, task / pieces / planes, plane, piece * rows, std::min(rows, out.h - piece * rows));
    });
}

void FastDepthwiseLayer::compute(const FastRun& run, int sample, int block, int firstRow, int rows) const {
    FastDepthwise call;
    call.xRow = input_.strides.row;
    call.x = input_.plane(run, sample, block) + window_ + std::ptrdiff_t{firstRow} * stride_.h * call.xRow;
    call.weights = weights_->data() + std::ptrdiff_t{block} * kernel_.h * kernel_.w * kFastBlock;
    call.bias = bias_->data() + block * kFastBlock;
    float* const plane = output_.plane(run, sample, block);
    call.yRow = output_.strides.row;
    call.y = plane + firstRow * call.yRow;
    if (epilogue_.hasAdded) {
        call.addedRow = epilogue_.added.strides.row;
        call.added = epilogue_.added.plane(run, sample, block) + firstRow * call.addedRow;
    }
    call.rows = rows;
    call.pixels = output_.shape.w;
    call.kernelH = kernel_.h;
    call.kernelW = kernel_.w;
    call.strideH = stride_.h;
    call.strideW = stride_.w;
    call.dilationH = dilation_.h;
    call.dilationW = dilation_.w;
    call.low = epilogue_.low;
    call.high = epilogue_.high;
    run.kernels.depthwise(call);
    epilogue_.rest.applyRows(run, sample, block, firstRow, rows);
    output_.clearBorder(plane, firstRow, firstRow + rows);
}
