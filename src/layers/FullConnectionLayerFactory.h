#pragma once

#include "builder/LayerFactory.h"

// A fully connected operation: never in place, every output needs all inputs.
class FullConnectionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
