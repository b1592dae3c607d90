#include "layers/RawSoftMaxLayerFactory.h"

#include "layers/RawSoftMaxLayer.h"

RawSoftMaxLayerFactory::RawSoftMaxLayerFactory(nolk::TensorX* x, nolk::Axis axis)
    : SoftMaxLayerFactory({x}), axis_(static_cast<int>(axis)) {
    initOutput(input()->shape);
}

std::unique_ptr<Layer> RawSoftMaxLayerFactory::create() {
    return std::make_unique<RawSoftMaxLayer>(input()->toTensor(), output()->toTensor(), axis_);
}
