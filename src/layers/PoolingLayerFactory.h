#pragma once

#include "builder/LayerFactory.h"

class PaddingLayerFactory;

// Pooling, as fusion sees it: a maximum takes over a zero padding in front of it, an average never does.
class PoolingLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    LayerFactory* fuse() override;
    void absorbPad(PaddingLayerFactory* pad);

    PoolingType type = POOL_MAX;
    nolk::DimsHW kernel;
    nolk::Padding padding;
    nolk::DimsHW stride;
};
