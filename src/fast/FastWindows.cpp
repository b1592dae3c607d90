#include "fast/FastWindows.h"

#include <algorithm>
#include <cstdint>

#include "builder/shapes.h"

namespace {

using nolk::TensorShape;

int limited(std::int64_t extent) { return static_cast<int>(std::clamp<std::int64_t>(extent, 0, INT32_MAX)); }

// How far the window of the last position reaches beyond the input.
int beyond(std::int64_t positions, int stride, int kernel, int dilation, int before, int in) {
    const std::int64_t window = (std::int64_t{kernel} - 1) * dilation + 1;
    return limited((positions - 1) * stride + window - before - in);
}

std::int64_t floorDivide(std::int64_t a, std::int64_t b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// A deconvolution reads source i for position p = i * stride + k - before, for k below kernel.
int readBefore(int kernel, int stride, int before) {
    return limited(floorDivide(std::int64_t{kernel} - 1 - before, stride));
}

int readBehind(int out, int stride, int before, int in) {
    return limited(floorDivide(std::int64_t{out} - 1 + before, stride) - in + 1);
}

}  // namespace

FastConvolutionKind kindOf(const FastConvolution& op, const TensorShape& in, const TensorShape& out) {
    const nolk::Weights& w = op.weights;
    const nolk::Padding& p = op.padding;
    const bool regular =
        elementCount(in) > 0 && elementCount(out) > 0 && std::min({w.groups, w.inChannels, w.outChannels}) > 0 &&
        std::min({w.kernelH, w.kernelW, op.stride.h, op.stride.w}) > 0 &&
        std::min({op.dilation.h, op.dilation.w}) > 0 && std::min({p.top, p.bottom, p.left, p.right}) >= 0 &&
        in.c >= std::int64_t{w.groups} * w.inChannels;
    if (!regular || !isReasonable(borderOf(op, in, out), in)) return FastConvolutionKind::gathered;
    const bool depthwise = w.inChannels == 1 && w.outChannels == 1 && w.groups > 1;
    return depthwise ? FastConvolutionKind::depthwise : FastConvolutionKind::direct;
}

FastBorder borderOf(const FastConvolution& op, const TensorShape& in, const TensorShape& out) {
    const nolk::Padding& p = op.padding;
    const nolk::Weights& w = op.weights;
    return {p.top, beyond(out.h, op.stride.h, w.kernelH, op.dilation.h, p.top, in.h), p.left,
            beyond(out.w, op.stride.w, w.kernelW, op.dilation.w, p.left, in.w)};
}

FastBorder borderOf(const FastDeconvolution& op, const TensorShape& in, const TensorShape& out) {
    const nolk::Padding& p = op.padding;
    const nolk::Weights& w = op.weights;
    return {readBefore(w.kernelH, op.stride.h, p.top), readBehind(out.h, op.stride.h, p.top, in.h),
            readBefore(w.kernelW, op.stride.w, p.left), readBehind(out.w, op.stride.w, p.left, in.w)};
}

bool isReasonable(const FastBorder& border, const TensorShape& in) {
    const std::int64_t rows = std::int64_t{border.top} + in.h + border.bottom;
    const std::int64_t columns = std::int64_t{border.left} + in.w + border.right;
    const std::int64_t plane = std::int64_t{in.h} * in.w;
    return rows < INT32_MAX && columns < INT32_MAX && rows * columns <= 4 * plane + 64;
}
