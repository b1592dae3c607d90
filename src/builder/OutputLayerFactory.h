// Stands behind a graph output during build as one more consumer, so that neither fusion nor an operation that works in
// place can use the output up. It makes no layer.
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
