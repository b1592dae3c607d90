// Records a reduction. Output: exactly the given shape. The layer reduces the dimensions whose extent is 1. Every other
// extent should be the input's; another value is accepted if the layer stays inside the output.
#pragma once

#include "layers/ReductionLayerFactory.h"

class RawReductionLayerFactory final : public ReductionLayerFactory {
public:
    RawReductionLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::BasicOp op);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    nolk::BasicOp op() const { return op_; }

private:
    nolk::BasicOp op_;
};
