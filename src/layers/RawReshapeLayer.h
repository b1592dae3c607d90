// The same elements under another shape. in, out of any shapes.
//   nchw  does nothing: the output is expected to share the input's memory
//   nhwc  out receives in, of shape [n, c, h, w], in the order n, h, w, c; out holds at least as many elements
#pragma once

#include "layers/Layer.h"
#include "layers/RawTransposeLayer.h"

class RawReshapeLayer final : public Layer {
public:
    RawReshapeLayer(nolk::Tensor input, nolk::Tensor output, nolk::TensorLayout layout);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::TensorLayout layout_;
    RawTransposeLayer transpose_;
};
