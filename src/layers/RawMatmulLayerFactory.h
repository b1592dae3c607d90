// Records a product of two tensors, plane by plane. Output: [a.n, a.c, a.h, b.w]. b has at least a's samples and
// channels, and a row for each of a's columns.
#pragma once

#include "layers/MatmulLayerFactory.h"

class RawMatmulLayerFactory final : public MatmulLayerFactory {
public:
    RawMatmulLayerFactory(nolk::TensorX* a, nolk::TensorX* b);

    std::unique_ptr<Layer> create() override;
    void check() const override;
};
