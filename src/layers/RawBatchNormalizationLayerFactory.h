// Records a batch normalisation. Output: shaped as the input. Copies the vectors; refuses ones shorter than the
// channels.
#pragma once

#include "layers/BatchNormalizationLayerFactory.h"

class RawBatchNormalizationLayerFactory final : public BatchNormalizationLayerFactory {
public:
    RawBatchNormalizationLayerFactory(nolk::TensorX* x, const nolk::Vector& scaleVector, const nolk::Vector& biasVector,
                                      const nolk::Vector& meanVector, const nolk::Vector& varianceVector,
                                      float epsilonToAdd);

    std::unique_ptr<Layer> create() override;
    void check() const override;
};
