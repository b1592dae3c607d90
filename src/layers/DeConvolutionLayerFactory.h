#pragma once

#include "builder/LayerFactory.h"

class DeConvolutionLayerFactory : public LayerFactory {
public:
    using LayerFactory::LayerFactory;
};
