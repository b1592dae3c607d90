// Records an element-wise operation on two tensors. Output: a's shape.
#pragma once

#include "layers/EltwiseLayerFactory.h"

class RawEltwiseLayerFactory final : public EltwiseLayerFactory {
public:
    RawEltwiseLayerFactory(nolk::TensorX* a, nolk::TensorX* b, EltwiseType type);

    std::unique_ptr<Layer> create() override;

private:
    EltwiseType type_;
};
