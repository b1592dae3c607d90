#pragma once

#include "builder/LayerFactory.h"

// In place is safe: an activation reads each element before it writes the result at the same index.
class ActLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
    bool inplaceOp() const override { return true; }
};
