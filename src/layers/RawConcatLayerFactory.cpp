#include "layers/RawConcatLayerFactory.h"

#include <climits>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawConcatLayer.h"

namespace {

// 0 to 3, or -1 for an axis that does not exist.
int axisFromStart(int axis) {
    if (axis < -4 || axis > 3) return -1;
    return axis < 0 ? axis + 4 : axis;
}

int extentAt(const nolk::TensorShape& shape, int axis) {
    const int extents[] = {shape.n, shape.c, shape.h, shape.w};
    return extents[axis];
}

// Doubles are exact up to 2^53 and never wrap. Larger values are not exact, but still compare as too large.

bool isInt(double value) { return value >= INT_MIN && value <= INT_MAX; }

// The offset in the output where the copy of a non-empty input ends. before: sum of the earlier inputs' extents at the
// axis, where rows and columns start. copied: elements (axis n) or channels (axis c) of the earlier non-empty inputs.
double writeEnd(const nolk::TensorShape& in, const nolk::TensorShape& out, int axis, double before, double copied) {
    const double planes = static_cast<double>(in.n) * in.c;
    switch (axis) {
        case 0:
            return copied + elementCount(in);
        case 1:
            return elementCount(out) == 0 ? 0.0 : (copied + in.c) * out.n * out.h * out.w;
        case 2:
            return ((planes - 1) * out.h + before + in.h) * in.w;
        case 3:
            return (((in.n - 1.0) * out.c + in.c - 1.0) * out.h + in.h - 1.0) * out.w + before + in.w;
        default:
            return 0.0;
    }
}

// The offset in the input where the copy of it ends.
double readEnd(const nolk::TensorShape& in, const nolk::TensorShape& out, int axis) {
    const bool copies = axis == 1 && in.c > 0 && elementCount(out) > 0;
    return copies ? static_cast<double>(out.n) * in.c * out.h * out.w : 0.0;
}

}  // namespace

RawConcatLayerFactory::RawConcatLayerFactory(const std::vector<nolk::TensorX*>& tensors, nolk::Axis axis)
    : ConcatLayerFactory(tensors), axis_(static_cast<int>(axis)) {
    const nolk::TensorShape& first = inputs.front()->shape;
    int extents[] = {first.n, first.c, first.h, first.w};
    const int index = axisFromStart(axis_);
    // check() rejects a sum that does not fit an int.
    if (index >= 0) extents[index] = isInt(joinedExtent()) ? static_cast<int>(joinedExtent()) : 0;
    if (first.dims == 1)
        initOutput({extents[0], extents[1], 1, 1, 1});
    else
        initOutput({extents[0], extents[1], extents[2], extents[3], 3});
}

double RawConcatLayerFactory::joinedExtent() const {
    double sum = 0.0;
    for (const nolk::TensorX* t : inputs) sum += extentAt(t->shape, axisFromStart(axis_));
    return sum;
}

void RawConcatLayerFactory::check() const {
    const int axis = axisFromStart(axis_);
    if (axis < 0) return;
    if (!isInt(joinedExtent())) refuse("concat: extents must add up to 32 bits, are %.0f", joinedExtent());
    const nolk::TensorShape& out = output()->shape;
    if (!isRepresentable(out)) return;  // the builder rejects it for every operation

    double extents = 0.0, copied = 0.0;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const nolk::TensorShape& in = inputs[i]->shape;
        // If the output is empty, the layer copies no channels, but it would still copy rows and columns.
        const bool hasPlace = axis < 2 || (extents >= 0.0 && elementCount(out) > 0);
        const bool leavesOutput =
            elementCount(in) > 0 && (!hasPlace || writeEnd(in, out, axis, extents, copied) > elementCount(out));
        if (leavesOutput || readEnd(in, out, axis) > elementCount(in))
            refuse("concat: extents off axis %d must agree, input %d is [%d, %d, %d, %d], output [%d, %d, %d, %d]",
                   axis_, static_cast<int>(i), in.n, in.c, in.h, in.w, out.n, out.c, out.h, out.w);
        extents += extentAt(in, axis);
        if (elementCount(in) > 0) copied += axis == 0 ? elementCount(in) : in.c;
    }
}

std::unique_ptr<Layer> RawConcatLayerFactory::create() {
    std::vector<nolk::Tensor> tensors;
    for (const nolk::TensorX* t : inputs) tensors.push_back(t->toTensor());
    return std::make_unique<RawConcatLayer>(std::move(tensors), output()->toTensor(), axis_);
}
