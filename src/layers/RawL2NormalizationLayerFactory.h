// Records an L2 normalisation. Output: the input's shape.
#pragma once

#include "layers/L2NormalizationLayerFactory.h"

class RawL2NormalizationLayerFactory final : public L2NormalizationLayerFactory {
public:
    explicit RawL2NormalizationLayerFactory(nolk::TensorX* x);

    std::unique_ptr<Layer> create() override;
};
