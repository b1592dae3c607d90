#pragma once

#include "builder/LayerFactory.h"

// What fusion needs of a zero padding. A convolution or a max pooling after it may absorb it, adding its amounts to
// their own padding.
class PaddingLayerFactory : public LayerFactory {
public:
    PaddingLayerFactory(nolk::TensorX* x, nolk::Padding amounts) : LayerFactory({x}), padding(amounts) {}

    nolk::Padding padding;
};
