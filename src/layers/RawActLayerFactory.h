// Records an activation. Output: the input's shape. The slopes (prelu) are copied.
#pragma once

#include "layers/ActLayerFactory.h"
#include "layers/vectors.h"

class RawActLayerFactory final : public ActLayerFactory {
public:
    // p0 to p3 are the function's parameters, see RawActLayer; slopes holds count floats.
    RawActLayerFactory(nolk::TensorX* x, ActivateType type, float p0, float p1, float p2, float p3, const float* slopes,
                       int count);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    ActivateType type() const { return type_; }
    float p0() const { return p0_; }
    float p1() const { return p1_; }
    float p2() const { return p2_; }
    float p3() const { return p3_; }
    const ChannelVector& slopes() const { return slopes_; }

private:
    ActivateType type_;
    float p0_, p1_, p2_, p3_;
    ChannelVector slopes_;
};
