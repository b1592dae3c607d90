#pragma once

#include "builder/LayerFactory.h"

// In place is safe: mean and variance of a plane are computed before its elements are overwritten.
class InstanceNormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
