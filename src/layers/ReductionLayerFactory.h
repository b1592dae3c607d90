#pragma once

#include "builder/LayerFactory.h"

class ReductionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
