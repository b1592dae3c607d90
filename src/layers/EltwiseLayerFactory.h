#pragma once

#include "builder/LayerFactory.h"

// In place is safe: an element-wise operation reads each element of a before it writes the result at the same index.
class EltwiseLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
