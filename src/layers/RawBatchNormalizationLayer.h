// y = ((x - mean) * scale) / sqrt(variance + epsilon) + bias with the channel's values, computed in single precision
// and in this order.
//   in, out [n, c, h, w]; out may be in. The vectors hold at least c floats.
#pragma once

#include <vector>

#include "layers/Layer.h"

class RawBatchNormalizationLayer final : public Layer {
public:
    RawBatchNormalizationLayer(nolk::Tensor input, nolk::Tensor output, std::vector<float> scale,
                               std::vector<float> bias, std::vector<float> mean, std::vector<float> variance,
                               float epsilon);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    std::vector<float> scale_;
    std::vector<float> bias_;
    std::vector<float> mean_;
    std::vector<float> variance_;
    float epsilon_;
    nolk::Tensor input_;
    nolk::Tensor output_;
};
