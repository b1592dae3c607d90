#pragma once

#include "builder/LayerFactory.h"

// In place is safe: a reshape does not move elements, unless its layout reorders them; RawReshapeLayerFactory checks
// it.
class ReshapeLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
