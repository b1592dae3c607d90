#include "inspect/outputShape.h"

#include <algorithm>
#include <iterator>

#include "model/operations.h"

namespace {

using Builder = nolk::RunnerBuilder;

bool isAxis(int axis) { return axis >= 0 && axis <= 3; }

int fromStart(int axis) { return axis >= -4 && axis < 0 ? axis + 4 : axis; }

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

// The result of concat or slice is a matrix if its input is one.
nolk::TensorShape withDims(nolk::TensorShape shape, bool matrix) {
    if (matrix) return {shape.n, shape.c, 1, 1, 1};
    shape.dims = 3;
    return shape;
}

nolk::TensorShape padded(nolk::TensorShape x, nolk::Padding padding) {
    return {x.n, x.c, padding.top + x.h + padding.bottom, padding.left + x.w + padding.right, 3};
}

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
    for (int i = 0; i < 4; ++i) extent(result, i) = isAxis(perm.axes[i]) ? extent(x, perm.axes[i]) : 0;
    result.dims = 3;
    return result;
}

nolk::TensorShape sliced(nolk::TensorShape x, nolk::SlicePos pos) {
    const int axis = fromStart(pos.axis);
    if (!isAxis(axis)) return x;
    nolk::TensorShape result = x;
    extent(result, axis) = quotient(std::min(pos.end, extent(x, axis)) - std::max(pos.start, 0), pos.step);
    return withDims(result, x.dims != 3);
}

nolk::TensorShape concatenated(const std::vector<nolk::TensorShape>& shapes, int axis) {
    if (!isAxis(axis)) return withDims(shapes.front(), shapes.front().dims == 1);
    nolk::TensorShape result = shapes.front();
    extent(result, axis) = 0;
    for (nolk::TensorShape shape : shapes) extent(result, axis) += extent(shape, axis);
    return withDims(result, shapes.front().dims == 1);
}

}  // namespace

nolk::TensorShape outputShape(const Call& call, const std::vector<nolk::TensorShape>& inputs) {
    const auto& a = call.arguments;
    switch (call.operation.code) {
        case kCodeOf<&operation::constTensor>:
            return std::get<nolk::Tensor>(a[0]).shape;
        case kCodeOf<&Builder::input>:
        case kCodeOf<&Builder::reshape>:
        case kCodeOf<&Builder::reduce>:
        case kCodeOf<&Builder::resize>:
        case kCodeOf<&operation::resizeAligned>:
            return std::get<nolk::TensorShape>(a[0]);
        case kCodeOf<&Builder::convolve>:
            return convolved(inputs[0], std::get<nolk::Padding>(a[0]), std::get<nolk::DimsHW>(a[1]),
                             std::get<nolk::DimsHW>(a[2]), std::get<nolk::Weights>(a[3]));
        case kCodeOf<&Builder::deConvolve>:
            return deConvolved(inputs[0], std::get<nolk::Padding>(a[0]), std::get<nolk::DimsHW>(a[1]),
                               std::get<nolk::DimsHW>(a[2]), std::get<nolk::Weights>(a[3]));
        case kCodeOf<&Builder::pad>:
            return padded(inputs[0], std::get<nolk::Padding>(a[0]));
        case kCodeOf<&Builder::maxPool>:
        case kCodeOf<&Builder::avgPool>:
            return pooled(inputs[0], std::get<nolk::DimsHW>(a[0]), std::get<nolk::Padding>(a[1]),
                          std::get<nolk::DimsHW>(a[2]));
        case kCodeOf<&operation::fullConnect>:
            return fullyConnected(inputs[0], std::get<SharedWeights>(a[0]).weights);
        case kCodeOf<&Builder::lstm>:
            return lstmOutput(inputs[0], std::get<nolk::LstmWeights>(a[0]));
        case kCodeOf<&Builder::matMul>:
            return matMultiplied(inputs[0], inputs[1]);
        case kCodeOf<&Builder::transpose>:
            return transposed(inputs[0], std::get<nolk::Perm>(a[0]));
        case kCodeOf<&Builder::slice>:
            return sliced(inputs[0], std::get<nolk::SlicePos>(a[0]));
        case kCodeOf<&operation::concat>:
            return concatenated(inputs, fromStart(static_cast<int>(std::get<nolk::Axis>(a[0]))));
        default:
            return inputs[0];
    }
}
