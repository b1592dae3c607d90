// y = x * weight^T + bias, one matrix product on the calling thread.
//   in [n, c, 1, 1], weights [out, c / groups], bias [out], y [n, groups * out, 1, 1]
// Each group is a separate row of the product, and all rows use the same weights and biases, because model files store
// those of one group only. The input is read as n * c floats, even if its h or w is above 1.
#pragma once

#include "layers/Layer.h"
#include "memory/FloatArrays.h"

class RawFullConnectionLayer final : public Layer {
public:
    RawFullConnectionLayer(nolk::Tensor input, nolk::Tensor output, const nolk::Weights& weights,
                           FloatArrays* given = nullptr);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    int groups_;
    FloatBuffer weight_;
    FloatBuffer bias_;
};
