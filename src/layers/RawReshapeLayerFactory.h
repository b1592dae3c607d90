// Records a reshape. Output: the given shape, as it is; it may have more or fewer elements than the input. With layout
// nchw the output names the input's storage; with nhwc it has its own, which must hold all of the input's elements.
#pragma once

#include "layers/ReshapeLayerFactory.h"

class RawReshapeLayerFactory final : public ReshapeLayerFactory {
public:
    RawReshapeLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout);

    std::unique_ptr<Layer> create() override;
    void connect() override;
    void check() const override;

private:
    nolk::TensorLayout layout_;
};
