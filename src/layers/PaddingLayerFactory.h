#pragma once

#include "builder/LayerFactory.h"

// Zero padding, as fusion sees it: a convolution or a max pooling behind it may take the amounts over.
class PaddingLayerFactory : public LayerFactory {
public:
    PaddingLayerFactory(nolk::TensorX* x, nolk::Padding amounts) : LayerFactory({x}), padding(amounts) {}

    nolk::Padding padding;
};
