// Records an LSTM layer. Output: [n, c, t, numDirections * hiddenSize] for an input [n, c, t, inputSize]. The number of
// directions is the number of passes; with one, `direction` decides which way it runs. The caller owns the weight
// arrays, which are read until create.
#pragma once

#include "layers/LstmLayerFactory.h"

class RawLstmLayerFactory final : public LstmLayerFactory {
public:
    RawLstmLayerFactory(nolk::TensorX* x, const nolk::LstmWeights& weights);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    const nolk::LstmWeights& weights() const { return weights_; }

private:
    nolk::LstmWeights weights_;
};
