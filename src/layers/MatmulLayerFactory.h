#pragma once

#include "builder/LayerFactory.h"

class MatmulLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
