#include "writer/outputShapes.h"

#include <algorithm>

namespace outputShape {

namespace {

int quotient(int a, int b) {
    if (b == 0) return 0;
    return b == -1 ? 0 - a : a / b;
}

int windowPositions(int paddedIn, int window, int stride) { return quotient(paddedIn - window, stride) + 1; }

int windowExtent(int kernel, int dilation) { return (kernel - 1) * dilation + 1; }

int& extent(nolk::TensorShape& shape, int axis) {
    int* const extents[] = {&shape.n, &shape.c, &shape.h, &shape.w};
    return *extents[axis];
}

// Joining and cutting keep a matrix a matrix.
nolk::TensorShape asBefore(nolk::TensorShape shape, bool matrix) {
    if (matrix) return {shape.n, shape.c, 1, 1, 1};
    shape.dims = 3;
    return shape;
}

}  // namespace

nolk::TensorShape convolved(nolk::TensorShape x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                            const nolk::Weights& weights) {
    const nolk::TensorShape in = padded(x, padding);
    return {x.n, weights.groups * weights.outChannels,
            windowPositions(in.h, windowExtent(weights.kernelH, dilation.h), stride.h),
            windowPositions(in.w, windowExtent(weights.kernelW, dilation.w), stride.w), 3};
}

nolk::TensorShape deConvolved(nolk::TensorShape x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                              const nolk::Weights& weights) {
    return {x.n, weights.groups * weights.outChannels,
            windowExtent(weights.kernelH, dilation.h) + (x.h - 1) * stride.h - padding.top - padding.bottom,
            windowExtent(weights.kernelW, dilation.w) + (x.w - 1) * stride.w - padding.left - padding.right, 3};
}

nolk::TensorShape padded(nolk::TensorShape x, nolk::Padding padding) {
    return {x.n, x.c, padding.top + x.h + padding.bottom, padding.left + x.w + padding.right, 3};
}

nolk::TensorShape pooled(nolk::TensorShape x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    const nolk::TensorShape in = padded(x, padding);
    return {x.n, x.c, windowPositions(in.h, kernel.h, stride.h), windowPositions(in.w, kernel.w, stride.w), 3};
}

nolk::TensorShape fullyConnected(nolk::TensorShape x, const nolk::Weights& weights) {
    return {x.n, weights.groups * weights.outChannels, 1, 1, 1};
}

nolk::TensorShape lstmOutput(nolk::TensorShape x, const nolk::LstmWeights& weights) {
    return {x.n, x.c, x.h, weights.numDirections * weights.hiddenSize, 3};
}

nolk::TensorShape matMultiplied(nolk::TensorShape a, nolk::TensorShape b) { return {a.n, a.c, a.h, b.w, 3}; }

nolk::TensorShape transposed(nolk::TensorShape x, nolk::Perm perm) {
    nolk::TensorShape result;
    for (int i = 0; i < 4; ++i) extent(result, i) = extent(x, perm.axes[i]);
    result.dims = 3;
    return result;
}

nolk::TensorShape sliced(nolk::TensorShape x, int axis, nolk::SlicePos pos) {
    nolk::TensorShape result = x;
    extent(result, axis) = quotient(std::min(pos.end, extent(x, axis)) - std::max(pos.start, 0), pos.step);
    return asBefore(result, x.dims != 3);
}

nolk::TensorShape concatenated(const std::vector<nolk::TensorShape>& shapes, int axis) {
    nolk::TensorShape result = shapes.front();
    extent(result, axis) = 0;
    for (nolk::TensorShape shape : shapes) extent(result, axis) += extent(shape, axis);
    return asBefore(result, shapes.front().dims == 1);
}

}  // namespace outputShape
