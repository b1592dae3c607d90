// Records a reshape. Output: exactly the given shape, which may have more or fewer elements than the input. With layout
// nchw the output shares the input's storage if canInplace() allows it. With nhwc it has its own, which must have room
// for all elements of the input.
#pragma once

#include "layers/ReshapeLayerFactory.h"

class RawReshapeLayerFactory final : public ReshapeLayerFactory {
public:
    RawReshapeLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout);

    std::unique_ptr<Layer> create() override;
    void connect() override;
    void check() const override;
    nolk::TensorLayout layout() const { return layout_; }

private:
    nolk::TensorLayout layout_;
};
