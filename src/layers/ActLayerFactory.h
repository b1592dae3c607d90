#pragma once

#include "builder/LayerFactory.h"

// Activations read an element before they write the one of the same index.
class ActLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
