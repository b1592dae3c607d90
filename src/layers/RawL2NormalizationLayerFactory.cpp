#include "layers/RawL2NormalizationLayerFactory.h"

#include "layers/RawL2NormalizationLayer.h"

RawL2NormalizationLayerFactory::RawL2NormalizationLayerFactory(nolk::TensorX* x) : L2NormalizationLayerFactory({x}) {
    initOutput(input()->shape);
}

std::unique_ptr<Layer> RawL2NormalizationLayerFactory::create() {
    return std::make_unique<RawL2NormalizationLayer>(input()->toTensor(), output()->toTensor());
}
