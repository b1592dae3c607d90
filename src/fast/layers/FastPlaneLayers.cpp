#include "fast/layers/FastPlaneLayers.h"

#include <algorithm>

#include "layers/RawResizeLayer.h"

void FastPoolingLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int planes = output_.strides.planes;
    const std::int64_t floats = output_.strides.plane * std::min(op_.kernel.h, 16) * std::min(op_.kernel.w, 16);
    run.team.forEach(out.n * planes, floats, [&](int task) {
        const int n = task / planes, plane = task % planes;
        FastPool call;
        call.type = op_.type;
        call.x = input_.plane(run, n, plane);
        call.xRow = input_.strides.row;
        call.xRows = input_.shape.h;
        call.xPixels = input_.shape.w;
        call.y = output_.plane(run, n, plane);
        call.yRow = output_.strides.row;
        call.rows = out.h;
        call.pixels = out.w;
        call.kernel = op_.kernel;
        call.stride = op_.stride;
        call.top = op_.padding.top;
        call.left = op_.padding.left;
        run.kernels.pool(call);
        steps_.applyRows(run, n, plane, 0, out.h);
        output_.clearBorder(call.y, 0, out.h);
    });
}

void FastPlaneReductionLayer::run(const FastRun& run) const {
    const int planes = output_.strides.planes;
    run.team.forEach(output_.shape.n * planes, input_.strides.plane, [&](int task) {
        FastPlaneReduction call;
        call.op = op_;
        call.x = input_.plane(run, task / planes, task % planes);
        call.xRow = input_.strides.row;
        call.rows = input_.shape.h;
        call.pixels = input_.shape.w;
        call.y = output_.plane(run, task / planes, task % planes);
        run.kernels.reducePlane(call);
        output_.clearBorder(call.y, 0, 1);
    });
}

FastInstanceNormalizationLayer::FastInstanceNormalizationLayer(const FastNode& node, const FastInstanceNorm& op,
                                                               const FastView& input, const FastView& output,
                                                               const std::vector<FastView>& views)
    : input_(input),
      output_(output),
      scale_(op.scale),
      bias_(op.bias),
      epsilon_(op.epsilon),
      steps_(node.steps, views, output) {
    const auto lanes = static_cast<std::size_t>(blocksOf(output.shape.c)) * kFastBlock;
    scale_.resize(std::max(lanes, scale_.size()), 1.0f);
    bias_.resize(std::max(lanes, bias_.size()), 0.0f);
}

void FastInstanceNormalizationLayer::run(const FastRun& run) const {
    const nolk::TensorShape& s = output_.shape;
    const int planes = output_.strides.planes;
    run.team.forEach(s.n * planes, 3 * output_.strides.plane, [&](int task) {
        const int n = task / planes, plane = task % planes;
        if (output_.layout == FastLayout::plain) {
            FastRowNormalization call;
            call.x = input_.plane(run, n, plane);
            call.y = output_.plane(run, n, plane);
            call.outer = 1;
            call.extent = s.h * s.w;
            call.scale = scale_.data() + plane;
            call.bias = bias_.data() + plane;
            call.epsilon = epsilon_;
            run.kernels.normalizeRows(call);
        } else {
            FastPlaneNormalization call;
            call.x = input_.plane(run, n, plane);
            call.xRow = input_.strides.row;
            call.y = output_.plane(run, n, plane);
            call.yRow = output_.strides.row;
            call.rows = s.h;
            call.pixels = s.w;
            call.scale = scale_.data() + plane * kFastBlock;
            call.bias = bias_.data() + plane * kFastBlock;
            call.epsilon = epsilon_;
            run.kernels.normalizePlane(call);
        }
        steps_.applyRows(run, n, plane, 0, s.h);
        output_.clearBorder(output_.plane(run, n, plane), 0, s.h);
    });
}

FastResizeLayer::FastResizeLayer(const FastNode& node, const FastResize& op, const FastView& input,
                                 const FastView& output, const std::vector<FastView>& views)
    : input_(input),
      output_(output),
      rows_(axisOf(modeOf(op, input.shape), op.transMode, input.shape.h, output.shape.h)),
      columns_(axisOf(modeOf(op, input.shape), op.transMode, input.shape.w, output.shape.w)),
      steps_(node.steps, views, output) {}

// A single pixel is copied.
nolk::ResizeMode FastResizeLayer::modeOf(const FastResize& op, const nolk::TensorShape& in) {
    return in.h == 1 && in.w == 1 ? nolk::ResizeMode::nearest : op.mode;
}

FastResizeLayer::Axis FastResizeLayer::axisOf(nolk::ResizeMode mode, nolk::ResizeTransMode transMode, int in, int out) {
    Axis axis;
    const auto count = static_cast<std::size_t>(out);
    axis.first.resize(count);
    if (mode == nolk::ResizeMode::nearest) {
        const double scale = static_cast<double>(in) / out;
        for (int i = 0; i < out; ++i)
            axis.first[static_cast<std::size_t>(i)] = std::min(static_cast<int>(i * scale), in - 1);
        axis.second = axis.first;
        return axis;
    }
    std::vector<float> pairs(2 * count);
    RawResizeLayer::linear_coeffs(in, out, axis.first.data(), pairs.data(), static_cast<int>(transMode));
    for (std::size_t i = 0; i < count; ++i) {
        axis.weight.push_back(pairs[2 * i + 1]);
        axis.second.push_back(std::min(axis.first[i] + 1, in - 1));
    }
    return axis;
}

void FastResizeLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int planes = output_.strides.planes;
    run.team.forEach(out.n * planes, 2 * output_.strides.plane, [&](int task) {
        const int n = task / planes, plane = task % planes;
        const float* const x = input_.plane(run, n, plane);
        float* const y = output_.plane(run, n, plane);
        for (int row = 0; row < out.h; ++row) {
            const auto r = static_cast<std::size_t>(row);
            FastResizeRow call;
            call.x0 = rows_.first[r] < 0 ? nullptr : x + rows_.first[r] * input_.strides.row;
            call.x1 = x + rows_.second[r] * input_.strides.row;
            call.rowWeight = rows_.weight.empty() ? 0.0f : rows_.weight[r];
            call.left = columns_.first.front() < 0 ? nullptr : columns_.first.data();
            call.right = columns_.second.data();
            call.columnWeight = columns_.weight.empty() ? nullptr : columns_.weight.data();
            call.y = y + row * output_.strides.row;
            call.pixels = out.w;
            run.kernels.resizeRow(call);
        }
        steps_.applyRows(run, n, plane, 0, out.h);
        output_.clearBorder(y, 0, out.h);
    });
}
