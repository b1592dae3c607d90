// Records an element-wise operation on two tensors. Output: a's shape.
#pragma once

#include "layers/EltwiseLayerFactory.h"

class RawEltwiseLayerFactory final : public EltwiseLayerFactory {
public:
    RawEltwiseLayerFactory(nolk::TensorX* a, nolk::TensorX* b, EltwiseType type);

    std::unique_ptr<Layer> create() override;
    EltwiseType type() const { return type_; }

private:
    EltwiseType type_;
};
