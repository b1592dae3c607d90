#pragma once

#include "builder/LayerFactory.h"

// Element-wise operations read an element of a before they write the one of the same index.
class EltwiseLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
