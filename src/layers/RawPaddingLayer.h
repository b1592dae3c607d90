// Surrounds every plane with zeros: y[n, c, top + h, left + w] = x[n, c, h, w], 0 elsewhere.
//   in [n, c, h, w], out [n, c, top + h + bottom, left + w + right]; not in place
#pragma once

#include "layers/Layer.h"

class RawPaddingLayer final : public Layer {
public:
    RawPaddingLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::Padding padding_;
};
