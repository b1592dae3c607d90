// Records a fully connected operation. Output [n, groups * outChannels, 1, 1] with dims 1. Rejects an input with more
// channels than there are weights for. Reads the caller's arrays until create.
#pragma once

#include "layers/FullConnectionLayerFactory.h"

class RawFullConnectionLayerFactory final : public FullConnectionLayerFactory {
public:
    RawFullConnectionLayerFactory(nolk::TensorX* x, nolk::Weights weights);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    const nolk::Weights& weights() const { return weights_; }

private:
    nolk::Weights weights_;
};
