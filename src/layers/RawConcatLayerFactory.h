// Records a concatenation. Output: the first input's shape, with the sum of all inputs' extents at the axis. The other
// extents need not agree as long as the copies stay inside the tensors. If the axis does not exist, the output has the
// first input's shape.
#pragma once

#include "layers/ConcatLayerFactory.h"

class RawConcatLayerFactory final : public ConcatLayerFactory {
public:
    RawConcatLayerFactory(const std::vector<nolk::TensorX*>& tensors, nolk::Axis axis);

    std::unique_ptr<Layer> create() override;
    void check() const override;
    int axis() const { return axis_; }

private:
    double joinedExtent() const;

    int axis_;  // as recorded
};
