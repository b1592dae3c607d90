// An activation, element by element. in, out [n, c, h, w]; out may be in.
//   relu          x < 0 ? 0 : x
//   sigmoid       1 / (exp(-x) + 1)
//   exp, abs, tanh
//   clip          x < p0 ? p0 : x > p1 ? p1 : x
//   hard sigmoid  fma(x, p2, p3), limited to [0, 1]
//   leaky relu    x < 0 ? x * p2 : x
//   prelu         x < 0 ? x * slopes[i / (n * h * w)] : x, i being the index in the whole tensor
// NaN passes through all of them, and relu keeps -0.
#pragma once

#include "layers/Layer.h"
#include "layers/vectors.h"

class RawActLayer final : public Layer {
public:
    RawActLayer(nolk::Tensor input, nolk::Tensor output, ActivateType type, ChannelVector slopes, float p0, float p1,
                float p2, float p3);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void prelu(int count) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    ActivateType type_;
    float p0_, p1_, p2_, p3_;
    ChannelVector slopes_;
};
