// y = x * k + t for every plane, with k = scale[c] / sqrt(variance + epsilon) and t = bias[c] - mean * k; y and t are
// fused multiply-adds. Mean and population variance of the plane's h * w values are summed up in row-major order,
// squares by fused multiply-adds.
//   in, out  [n, c, h, w]; out may be in; without vectors scale is 1 and bias 0
#pragma once

#include "layers/Layer.h"
#include "layers/vectors.h"

class RawInstanceNormalizationLayer final : public Layer {
public:
    RawInstanceNormalizationLayer(nolk::Tensor input, nolk::Tensor output, ChannelVector scale, ChannelVector bias,
                                  float epsilon);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void normalizePlane(const float* in, float* out, int count, int channel) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    ChannelVector scale_;  // empty, or one for every channel; likewise:
    ChannelVector bias_;
    float epsilon_;
};
