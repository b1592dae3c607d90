// Records a slice. Output: the input's shape with (end - start) / step elements at the axis. If the input's dims are
// not 3, only n and c of that shape are kept: [n, c, 1, 1] with dims 1. The layer takes one element more if the step
// does not divide the range, and may write beyond the output's elements: its storage has room for that.
#pragma once

#include <cstdint>

#include "layers/SliceLayerFactory.h"

class RawSliceLayerFactory final : public SliceLayerFactory {
public:
    RawSliceLayerFactory(nolk::TensorX* x, nolk::SlicePos pos);

    std::unique_ptr<Layer> create() override;
    void connect() override;
    void check() const override;
    nolk::SlicePos pos() const { return pos_; }

    // The end of what the layer writes, from the output's start.
    std::int64_t writtenFloats() const;

private:
    bool takesElements() const;

    nolk::SlicePos pos_;  // axis 0 to 3 if it exists, start >= 0, end <= the input's extent
};
