#pragma once

#include "builder/LayerFactory.h"

// A position is summed up before its channels are written.
class L2NormalizationLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
