#pragma once

#include "builder/LayerFactory.h"

// Batch normalisation, as fusion sees it: y = (x - mean) * scale / sqrt(variance + epsilon) + bias for every channel,
// which a neighbouring convolution may take over. The vectors are copies.
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
