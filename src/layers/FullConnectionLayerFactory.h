#pragma once

#include "builder/LayerFactory.h"

// A fully connected operation. It is never in place, because every output needs all inputs.
class FullConnectionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
