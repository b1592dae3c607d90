// Records a reduction. Output: the given shape, as it is. An extent of 1 is reduced; any other is kept, and is the
// input's unless the layer stays inside the output all the same.
#pragma once

#include "layers/ReductionLayerFactory.h"

class RawReductionLayerFactory final : public ReductionLayerFactory {
public:
    RawReductionLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::BasicOp op);

    std::unique_ptr<Layer> create() override;
    void check() const override;

private:
    nolk::BasicOp op_;
};
