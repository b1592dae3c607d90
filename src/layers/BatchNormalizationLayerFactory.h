#pragma once

#include "builder/LayerFactory.h"

// What fusion needs of a batch normalisation: y = (x - mean) * scale / sqrt(variance + epsilon) + bias for every
// channel. A neighbouring convolution may absorb it. The vectors are copies.
class BatchNormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }

    std::vector<float> scale;
    std::vector<float> bias;
    std::vector<float> mean;
    std::vector<float> variance;
    float epsilon = 0.0f;
};
