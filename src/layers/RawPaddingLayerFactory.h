// Records a zero padding. Output [n, c, top + h + bottom, left + w + right]. Refuses negative amounts.
#pragma once

#include "layers/PaddingLayerFactory.h"

class RawPaddingLayerFactory final : public PaddingLayerFactory {
public:
    RawPaddingLayerFactory(nolk::TensorX* x, nolk::Padding amounts);

    std::unique_ptr<Layer> create() override;
    void check() const override;
};
