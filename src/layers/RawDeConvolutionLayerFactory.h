// Records a transposed convolution. Output: [n, groups * outChannels, (kernelH - 1) * dilation.h + 1 + (h - 1) *
// stride.h - top - bottom, w likewise]. Dilation affects the shape only. The caller owns the weight arrays, which are
// read until create.
#pragma once

#include "layers/DeConvolutionLayerFactory.h"

class RawDeConvolutionLayerFactory final : public DeConvolutionLayerFactory {
public:
    RawDeConvolutionLayerFactory(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                                 const nolk::Weights& weights);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    nolk::Padding padding() const { return padding_; }
    nolk::DimsHW stride() const { return stride_; }
    const nolk::Weights& weights() const { return weights_; }

private:
    nolk::Padding padding_;
    nolk::DimsHW stride_;
    nolk::Weights weights_;
};
