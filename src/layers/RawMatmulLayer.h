// The matrix product of every plane of a with the same plane of b, by fused multiply-adds in the order of k, from 0.
//   a [n, c, h, k]; b [n, c, k, w], more samples, channels and rows of b are ignored; out [n, c, h, w]
// With k = 0 the output is zeros.
#pragma once

#include "layers/Layer.h"

class RawMatmulLayer final : public Layer {
public:
    RawMatmulLayer(nolk::Tensor a, nolk::Tensor b, nolk::Tensor output);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return a_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void multiplyPlane(const float* a, const float* b, float* out) const;

    nolk::Tensor a_;
    nolk::Tensor b_;
    nolk::Tensor output_;
};
