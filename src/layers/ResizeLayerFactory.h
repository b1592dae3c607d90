#pragma once

#include "builder/LayerFactory.h"

class ResizeLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
