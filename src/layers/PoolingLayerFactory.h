#pragma once

#include "builder/LayerFactory.h"

class PaddingLayerFactory;

// What fusion needs of a pooling. A max pooling absorbs a zero padding before it, an average pooling never does.
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
