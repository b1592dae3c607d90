#include "layers/RawSliceLayerFactory.h"

#include <algorithm>
#include <climits>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawSliceLayer.h"
#include "math/quotient.h"

RawSliceLayerFactory::RawSliceLayerFactory(nolk::TensorX* x, nolk::SlicePos pos) : SliceLayerFactory({x}), pos_(pos) {
    const nolk::TensorShape& in = input()->shape;
    int extents[] = {in.n, in.c, in.h, in.w};
    if (pos_.axis < 0) pos_.axis += 4;
    if (pos_.axis >= 0 && pos_.axis <= 3) {
        int& extent = extents[pos_.axis];
        pos_.start = std::max(pos_.start, 0);
        pos_.end = std::min(pos_.end, extent);
        extent = quotient(pos_.end - pos_.start, pos_.step);
    }
    if (in.dims == 3)
        initOutput({extents[0], extents[1], extents[2], extents[3], 3});
    else
        initOutput({extents[0], extents[1], 1, 1, 1});
}

void RawSliceLayerFactory::check() const {
    if (pos_.axis < 0 || pos_.axis > 3) refuse("slice: axis must be -4 to 3, is %d", pos_.axis);
    if (takesElements() && pos_.step < 1) refuse("slice: step must be positive, is %d", pos_.step);
    if (isRepresentable(output()->shape) && writtenFloats() > INT_MAX)
        refuse("slice: elements must end within 2^31 - 1 floats, end at %.0f", static_cast<double>(writtenFloats()));
}

// The number of elements is negative for an input that another check refuses.
bool RawSliceLayerFactory::takesElements() const { return pos_.start < pos_.end && elementCount(input()->shape) > 0; }

std::int64_t RawSliceLayerFactory::writtenFloats() const {
    if (!takesElements()) return 0;
    const nolk::TensorShape& in = input()->shape;
    std::int64_t taken[] = {in.n, in.c, in.h, in.w};
    taken[pos_.axis] = (static_cast<std::int64_t>(pos_.end) - pos_.start - 1) / pos_.step + 1;
    const nolk::TensorShape& out = output()->shape;
    const std::int64_t row = out.w, plane = row * out.h, sample = plane * out.c;
    return (taken[0] - 1) * sample + (taken[1] - 1) * plane + (taken[2] - 1) * row + taken[3];
}

void RawSliceLayerFactory::connect() {
    SliceLayerFactory::connect();
    RawTensor& storage = *output()->rawTensor;
    storage.size = std::max(storage.size, static_cast<int>(writtenFloats()));
}

std::unique_ptr<Layer> RawSliceLayerFactory::create() {
    return std::make_unique<RawSliceLayer>(input()->toTensor(), output()->toTensor(), pos_);
}
