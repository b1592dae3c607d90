// An additional consumer of each network output during build. Because of it, fusion does not remove the output and no
// operation overwrites it in place. It makes no layer.
#pragma once

#include "builder/LayerFactory.h"
#include "layers/Layer.h"

class OutputLayerFactory final : public LayerFactory {
public:
    explicit OutputLayerFactory(nolk::TensorX* graphOutput) : LayerFactory({graphOutput}) {}

    std::unique_ptr<Layer> create() override { return nullptr; }
    void connect() override {}
    LayerFactory* fuse() override { return nullptr; }
};
