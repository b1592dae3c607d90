#include "layers/RawPoolingLayerFactory.h"

#include "builder/shapes.h"
#include "layers/RawPoolingLayer.h"

RawPoolingLayerFactory::RawPoolingLayerFactory(nolk::TensorX* x, PoolingType poolingType, nolk::DimsHW window,
                                               nolk::Padding amounts, nolk::DimsHW step)
    : PoolingLayerFactory({x}) {
    type = poolingType;
    kernel = window;
    padding = amounts;
    stride = step;
    const nolk::TensorShape& in = input()->shape;
    initOutput({in.n, in.c, windowPositions(in.h + padding.top + padding.bottom, kernel.h, stride.h),
                windowPositions(in.w + padding.left + padding.right, kernel.w, stride.w), 3});
}

std::unique_ptr<Layer> RawPoolingLayerFactory::create() {
    return std::make_unique<RawPoolingLayer>(input()->toTensor(), output()->toTensor(), type, kernel, padding, stride);
}
