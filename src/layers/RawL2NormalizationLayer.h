// y = x / sqrt(sum over c of x^2), for every sample, row and column; squares are fused into the sum, in channel order.
//   in, out  [n, c, h, w]; out may be in
// There is no epsilon against division by 0, because it would change every other result: if all channels are 0, the
// results are NaN.
#pragma once

#include "layers/Layer.h"

class RawL2NormalizationLayer final : public Layer {
public:
    RawL2NormalizationLayer(nolk::Tensor input, nolk::Tensor output);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
};
