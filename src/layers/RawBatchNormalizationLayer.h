// y = ((x - mean) * scale) / sqrt(variance + epsilon) + bias with the channel's values, computed in single precision
// and in this order.
//   in, out [n, c, h, w]; out may be in. The vectors hold at least c values.
#pragma once

#include "layers/Layer.h"
#include "layers/vectors.h"

class RawBatchNormalizationLayer final : public Layer {
public:
    RawBatchNormalizationLayer(nolk::Tensor input, nolk::Tensor output, ChannelVector scale, ChannelVector bias,
                               ChannelVector mean, ChannelVector variance, float epsilon);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    ChannelVector scale_;
    ChannelVector bias_;
    ChannelVector mean_;
    ChannelVector variance_;
    float epsilon_;
    nolk::Tensor input_;
    nolk::Tensor output_;
};
