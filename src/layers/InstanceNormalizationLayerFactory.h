#pragma once

#include "builder/LayerFactory.h"

// A plane is summed up before its elements are written.
class InstanceNormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
