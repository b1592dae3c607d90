// Records a softmax. Output: the input's shape. Any axis is accepted; the layer reports one that it does not know.
#pragma once

#include "layers/SoftMaxLayerFactory.h"

class RawSoftMaxLayerFactory final : public SoftMaxLayerFactory {
public:
    RawSoftMaxLayerFactory(nolk::TensorX* x, nolk::Axis axis);

    std::unique_ptr<Layer> create() override;
    int axis() const { return axis_; }

private:
    int axis_;
};
