#pragma once

#include "builder/LayerFactory.h"

class SliceLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
