#pragma once

#include "builder/LayerFactory.h"

// In place is safe: each value is read for the last time before it is overwritten.
class SoftMaxLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
