#pragma once

#include "builder/LayerFactory.h"

// In place is safe: the norm of a position is computed before its channels are overwritten.
class L2NormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
