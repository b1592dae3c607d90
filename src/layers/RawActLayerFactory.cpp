#include "layers/RawActLayerFactory.h"

#include "layers/RawActLayer.h"

RawActLayerFactory::RawActLayerFactory(nolk::TensorX* x, ActivateType type, float p0, float p1, float p2, float p3,
                                       const float* slopes, int count)
    : ActLayerFactory({x}), type_(type), p0_(p0), p1_(p1), p2_(p2), p3_(p3), slopes_(slopes, count) {
    initOutput(input()->shape);
}

void RawActLayerFactory::check() const {
    if (type_ == ACT_PRELU) checkChannels("prelu", "slopes", slopes_, input()->shape);
}

std::unique_ptr<Layer> RawActLayerFactory::create() {
    return std::make_unique<RawActLayer>(input()->toTensor(), output()->toTensor(), type_, slopes_, p0_, p1_, p2_, p3_);
}
