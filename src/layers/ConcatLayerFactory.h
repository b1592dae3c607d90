#pragma once

#include "builder/LayerFactory.h"

class ConcatLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
