#pragma once

#include "builder/LayerFactory.h"

class TransposeLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
