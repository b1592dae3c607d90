#include "layers/RawInstanceNormalizationLayerFactory.h"

#include "layers/RawInstanceNormalizationLayer.h"

RawInstanceNormalizationLayerFactory::RawInstanceNormalizationLayerFactory(nolk::TensorX* x, const nolk::Vector& scale,
                                                                           const nolk::Vector& bias, float epsilon)
    : InstanceNormalizationLayerFactory({x}), isScaled_(true), scale_(scale), bias_(bias), epsilon_(epsilon) {
    initOutput(input()->shape);
}

RawInstanceNormalizationLayerFactory::RawInstanceNormalizationLayerFactory(nolk::TensorX* x, float epsilon)
    : InstanceNormalizationLayerFactory({x}), isScaled_(false), epsilon_(epsilon) {
    initOutput(input()->shape);
}

void RawInstanceNormalizationLayerFactory::check() const {
    if (!isScaled_) return;
    checkChannels("instanceNormalization", "scale", scale_, input()->shape);
    checkChannels("instanceNormalization", "bias", bias_, input()->shape);
}

std::unique_ptr<Layer> RawInstanceNormalizationLayerFactory::create() {
    return std::make_unique<RawInstanceNormalizationLayer>(input()->toTensor(), output()->toTensor(), scale_, bias_,
                                                           epsilon_);
}
