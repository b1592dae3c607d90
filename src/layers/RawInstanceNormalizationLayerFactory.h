// Records an instance normalisation. Output: the input's shape. Scale and bias are copied; each needs a value for every
// channel. Without them scale is 1 and bias 0, and nothing is stored.
#pragma once

#include "layers/InstanceNormalizationLayerFactory.h"
#include "layers/vectors.h"

class RawInstanceNormalizationLayerFactory final : public InstanceNormalizationLayerFactory {
public:
    RawInstanceNormalizationLayerFactory(nolk::TensorX* x, const nolk::Vector& scale, const nolk::Vector& bias,
                                         float epsilon);
    RawInstanceNormalizationLayerFactory(nolk::TensorX* x, float epsilon);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    const ChannelVector& scale() const { return scale_; }
    const ChannelVector& bias() const { return bias_; }
    float epsilon() const { return epsilon_; }

private:
    bool isScaled_;
    ChannelVector scale_;
    ChannelVector bias_;
    float epsilon_;
};
