// Records a resize. Output: exactly the given shape. It need not have the input's samples and channels as long as the
// layer stays inside both tensors. Any mode is accepted, even one for which RawResizeLayer::run ends the process.
#pragma once

#include "layers/ResizeLayerFactory.h"

class RawResizeLayerFactory final : public ResizeLayerFactory {
public:
    RawResizeLayerFactory(nolk::TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                          nolk::ResizeTransMode transMode);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    nolk::ResizeMode mode() const { return mode_; }
    nolk::ResizeTransMode transMode() const { return transMode_; }

private:
    nolk::ResizeMode mode_;
    nolk::ResizeTransMode transMode_;
};
