#include "layers/RawBatchNormalizationLayerFactory.h"

#include "layers/RawBatchNormalizationLayer.h"

RawBatchNormalizationLayerFactory::RawBatchNormalizationLayerFactory(nolk::TensorX* x, const nolk::Vector& scaleVector,
                                                                     const nolk::Vector& biasVector,
                                                                     const nolk::Vector& meanVector,
                                                                     const nolk::Vector& varianceVector,
                                                                     float epsilonToAdd)
    : BatchNormalizationLayerFactory({x}) {
    scale = ChannelVector(scaleVector);
    bias = ChannelVector(biasVector);
    mean = ChannelVector(meanVector);
    variance = ChannelVector(varianceVector);
    epsilon = epsilonToAdd;
    initOutput(input()->shape);
}

void RawBatchNormalizationLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    checkChannels("batchNormalize", "scale", scale, in);
    checkChannels("batchNormalize", "bias", bias, in);
    checkChannels("batchNormalize", "mean", mean, in);
    checkChannels("batchNormalize", "variance", variance, in);
}

std::unique_ptr<Layer> RawBatchNormalizationLayerFactory::create() {
    return std::make_unique<RawBatchNormalizationLayer>(input()->toTensor(), output()->toTensor(), scale, bias, mean,
                                                        variance, epsilon);
}
