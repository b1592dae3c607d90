#include "layers/RawTransposeLayerFactory.h"

#include "builder/refuse.h"
#include "layers/RawTransposeLayer.h"

namespace {

int extentAt(const nolk::TensorShape& shape, int axis) {
    const int extents[] = {shape.n, shape.c, shape.h, shape.w};
    return axis >= 0 && axis < 4 ? extents[axis] : 0;
}

}  // namespace

RawTransposeLayerFactory::RawTransposeLayerFactory(nolk::TensorX* x, nolk::Perm perm)
    : TransposeLayerFactory({x}), perm_(perm) {
    const nolk::TensorShape& in = input()->shape;
    const auto& p = perm_.axes;
    initOutput({extentAt(in, p[0]), extentAt(in, p[1]), extentAt(in, p[2]), extentAt(in, p[3]), 3});
}

void RawTransposeLayerFactory::check() const {
    const auto& p = perm_.axes;
    for (const int axis : p)
        if (axis < 0 || axis > 3) refuse("transpose: axes must be 0 to 3, are %d, %d, %d, %d", p[0], p[1], p[2], p[3]);
}

std::unique_ptr<Layer> RawTransposeLayerFactory::create() {
    auto layer = std::make_unique<RawTransposeLayer>(input()->toTensor(), output()->toTensor(), perm_);
    layer->setDesc("transpose");
    return layer;
}
