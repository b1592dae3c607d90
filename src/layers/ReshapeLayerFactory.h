#pragma once

#include "builder/LayerFactory.h"

// The elements of a reshape stay where they are, unless it reorders them.
class ReshapeLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
