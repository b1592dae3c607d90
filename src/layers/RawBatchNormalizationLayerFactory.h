// Records a batch normalisation. Output: the input's shape. Copies the vectors; check rejects a vector with fewer
// values than the input has channels.
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
