#pragma once

#include "builder/LayerFactory.h"

// A line is read before its quotients are written.
class SoftMaxLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
