// Records a transposition. Output: dimension i is the input's dimension perm.axes[i]. An axis may occur twice.
#pragma once

#include "layers/TransposeLayerFactory.h"

class RawTransposeLayerFactory final : public TransposeLayerFactory {
public:
    RawTransposeLayerFactory(nolk::TensorX* x, nolk::Perm perm);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    nolk::Perm perm() const { return perm_; }

private:
    nolk::Perm perm_;
};
