// y = x * weight^T + bias, one matrix product on the calling thread.
//   in [n, c, 1, 1], weights [out, c / groups], bias [out], y [n, groups * out, 1, 1]
// With groups > 1 each sample's channels are cut into that many rows, and deliberately all of them meet the first
// group's weights and biases. Of an input with h or w above 1 only the first n * c values take part.
#pragma once

#include <memory>

#include "layers/Layer.h"

class RawFullConnectionLayer final : public Layer {
public:
    RawFullConnectionLayer(nolk::Tensor input, nolk::Tensor output, const nolk::Weights& weights);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    int groups_;
    std::unique_ptr<float[]> weight_;
    std::unique_ptr<float[]> bias_;
};
