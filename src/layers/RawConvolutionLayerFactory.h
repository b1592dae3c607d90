// Records a convolution. Output [n, groups * outChannels, oh, ow] with
//   oh = (h + top + bottom - ((kernelH - 1) * dilation.h + 1)) / stride.h + 1, ow likewise.
// Rejects input channels that disagree with the weights. Reads the caller's arrays until create.
#pragma once

#include "layers/ConvolutionLayerFactory.h"

class RawConvolutionLayerFactory final : public ConvolutionLayerFactory {
public:
    // numThreads and gemmThresh go to the matrix product.
    RawConvolutionLayerFactory(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                               nolk::Weights weights, int numThreads, int gemmThresh);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    nolk::DimsHW stride() const { return stride_; }
    nolk::DimsHW dilation() const { return dilation_; }

private:
    bool isPointwise() const;

    nolk::DimsHW stride_;
    nolk::DimsHW dilation_;
    int numThreads_;
    int gemmThresh_;
};
