#include "layers/RawEltwiseLayerFactory.h"

#include "layers/RawEltwiseLayer.h"

RawEltwiseLayerFactory::RawEltwiseLayerFactory(nolk::TensorX* a, nolk::TensorX* b, EltwiseType type)
    : EltwiseLayerFactory({a, b}), type_(type) {
    initOutput(a->shape);
}

std::unique_ptr<Layer> RawEltwiseLayerFactory::create() {
    return std::make_unique<RawEltwiseLayer>(inputs[0]->toTensor(), inputs[1]->toTensor(), output()->toTensor(), type_);
}
