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
            call.scale = op_.scale.from(plane);
            call.bias = op_.bias.from(plane);
            call.epsilon = op_.epsilon;
            run.kernels.normalizeRows(call);
        } else {
            FastPlaneNormalization call;
            call.x = input_.plane(run, n, plane);
            call.xRow = input_.strides.row;
            call.y = output_.plane(run, n, plane);
            call.yRow = output_.strides.row;
            call.rows = s.h;
            call.pixels = s.w;
            call.scale = op_.scale.from(std::ptrdiff_t{plane} * kFastBlock);
            call.bias = op_.bias.from(std::ptrdiff_t{plane} * kFastBlock);
            call.epsilon = op_.epsilon;
            run.kernels.normalizePlane(call);
        }
        steps_.applyRows(run, n, plane, 0, s.h);
        output_.clearBorder(output_.plane(run, n, plane), 0, s.h);
    });
}

FastResizeLayer::FastResizeLayer(const FastNode& node, const FastResize& op, const FastView& input,
                                 const FastView& output, const std::vector<FastView>& views, std::ptrdiff_t scratch)
    : input_(input),
      output_(output),
      mode_(modeOf(op, input.shape)),
      transMode_(op.transMode),
      scratch_(scratch),
      steps_(node.steps, views, output) {}

std::int64_t FastResizeLayer::scratchFloats(const nolk::TensorShape& output) {
    static_assert(sizeof(int) == sizeof(float));
    return 4 * (std::int64_t{output.h} + output.w);
}

// A single pixel is copied.
nolk::ResizeMode FastResizeLayer::modeOf(const FastResize& op, const nolk::TensorShape& in) {
    return in.h == 1 && in.w == 1 ? nolk::ResizeMode::nearest : op.mode;
}

FastResizeLayer::Axis FastResizeLayer::axisIn(float* scratch, int in, int out) const {
    int* const first = reinterpret_cast<int*>(scratch);
    if (mode_ == nolk::ResizeMode::nearest) {
        const double scale = static_cast<double>(in) / out;
        for (int i = 0; i < out; ++i) first[i] = std::min(static_cast<int>(i * scale), in - 1);
        return {first, first, nullptr};
    }
    int* const second = first + out;
    float* const weights = scratch + 2 * std::ptrdiff_t{out};  // at first both weights of each index
    RawResizeLayer::linear_coeffs(in, out, first, weights, static_cast<int>(transMode_));
    for (std::ptrdiff_t i = 0; i < out; ++i) {
        second[i] = std::min(first[i] + 1, in - 1);
        weights[i] = weights[2 * i + 1];
    }
    return {first, second, weights};
}

void FastResizeLayer::run(const FastRun& run) const {
    const nolk::TensorShape& out = output_.shape;
    const int planes = output_.strides.planes;
    float* const scratch = run.arena.floats.data() + scratch_;
    const Axis rows = axisIn(scratch, input_.shape.h, out.h);
    const Axis columns = axisIn(scratch + 4 * std::ptrdiff_t{out.h}, input_.shape.w, out.w);
    run.team.forEach(out.n * planes, 2 * output_.strides.plane, [&](int task) {
        const int n = task / planes, plane = task % planes;
        const float* const x = input_.plane(run, n, plane);
        float* const y = output_.plane(run, n, plane);
        for (int row = 0; row < out.h; ++row) {
            FastResizeRow call;
            call.x0 = rows.first[row] < 0 ? nullptr : x + rows.first[row] * input_.strides.row;
            call.x1 = x + rows.second[row] * input_.strides.row;
            call.rowWeight = rows.weight ? rows.weight[row] : 0.0f;
            call.left = columns.first[0] < 0 ? nullptr : columns.first;
            call.right = columns.second;
            call.columnWeight = columns.weight;
            call.y = y + row * output_.strides.row;
            call.pixels = out.w;
            run.kernels.resizeRow(call);
        }
        steps_.applyRows(run, n, plane, 0, out.h);
        output_.clearBorder(y, 0, out.h);
    });
}
