// Records a pooling. Output [n, c, (top + h + bottom - kernel.h) / stride.h + 1, w likewise].
#pragma once

#include "layers/PoolingLayerFactory.h"

class RawPoolingLayerFactory final : public PoolingLayerFactory {
public:
    RawPoolingLayerFactory(nolk::TensorX* x, PoolingType poolingType, nolk::DimsHW window, nolk::Padding amounts,
                           nolk::DimsHW step);

    std::unique_ptr<Layer> create() override;
};
