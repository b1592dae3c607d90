#include "layers/RawMatmulLayerFactory.h"

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawMatmulLayer.h"

RawMatmulLayerFactory::RawMatmulLayerFactory(nolk::TensorX* a, nolk::TensorX* b) : MatmulLayerFactory({a, b}) {
    initOutput({a->shape.n, a->shape.c, a->shape.h, b->shape.w, 3});
}

void RawMatmulLayerFactory::check() const {
    const nolk::TensorShape& a = inputs[0]->shape;
    const nolk::TensorShape& b = inputs[1]->shape;
    if (elementCount(a) == 0 || b.w < 1) return;
    // The layer indexes b by b's own extents. These may be larger than needed, as long as the last row that is read
    // exists.
    const double readEnd = (((a.n - 1.0) * b.c + a.c - 1.0) * b.h + a.w) * b.w;
    if (elementCount(b) == 0 || readEnd > elementCount(b))
        refuse("matMul: second input must have %d samples, %d channels, %d rows, has %d, %d, %d", a.n, a.c, a.w, b.n,
               b.c, b.h);
}

std::unique_ptr<Layer> RawMatmulLayerFactory::create() {
    return std::make_unique<RawMatmulLayer>(inputs[0]->toTensor(), inputs[1]->toTensor(), output()->toTensor());
}
