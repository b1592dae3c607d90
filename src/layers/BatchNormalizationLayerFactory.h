#pragma once

#include "builder/LayerFactory.h"
#include "layers/vectors.h"

// What fusion needs of a batch normalisation: y = (x - mean) * scale / sqrt(variance + epsilon) + bias for every
// channel. A neighbouring convolution may absorb it. The vectors are copies.
class BatchNormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }

    ChannelVector scale;
    ChannelVector bias;
    ChannelVector mean;
    ChannelVector variance;
    float epsilon = 0.0f;
};
