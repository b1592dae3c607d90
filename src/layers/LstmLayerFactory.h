#pragma once

#include "builder/LayerFactory.h"

class LstmLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
