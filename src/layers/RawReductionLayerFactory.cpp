#include "layers/RawReductionLayerFactory.h"

#include <algorithm>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawReductionLayer.h"

namespace {

// The offset in the output where the writes for a non-empty input end. A double is exact enough and never wraps.
double writeEnd(const nolk::TensorShape& in, const nolk::TensorShape& out) {
    if (RawReductionLayer::reducesChannelsOnly(in, out)) return static_cast<double>(in.n) * in.h * in.w;
    const double c = out.c == 1 ? 0 : in.c - 1, h = out.h == 1 ? 0 : in.h - 1, w = out.w == 1 ? 0 : in.w - 1;
    return (((in.n - 1.0) * out.c + c) * out.h + h) * out.w + w + 1;
}

}  // namespace

RawReductionLayerFactory::RawReductionLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::BasicOp op)
    : ReductionLayerFactory({x}), op_(op) {
    initOutput(shape);
}

void RawReductionLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const nolk::TensorShape& out = output()->shape;
    const bool known = op_ >= nolk::BasicOp::maximum && op_ <= nolk::BasicOp::minimum;
    if (!known || !isRepresentable(out)) return;
    if (RawReductionLayer::reducesChannelsOnly(in, out) && in.c < 1 && std::min({in.n, in.h, in.w}) > 0)
        refuse("reduce: input must have channels to reduce to %d, has %d", out.c, in.c);
    if (elementCount(in) > 0 && (elementCount(out) == 0 || writeEnd(in, out) > elementCount(out)))
        refuse("reduce: extents must be 1 or the input's [%d, %d, %d, %d], are [%d, %d, %d, %d]", in.n, in.c, in.h,
               in.w, out.n, out.c, out.h, out.w);
}

std::unique_ptr<Layer> RawReductionLayerFactory::create() {
    return std::make_unique<RawReductionLayer>(input()->toTensor(), output()->toTensor(), op_);
}
