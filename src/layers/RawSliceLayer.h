// Takes the elements start, start + step, ... below end along an axis.
//   in [n, c, h, w]; out has (end - start) / step elements at the axis
// The quotient truncates but the loop does not, and existing networks depend on both, on the shape and on the values.
// If the step does not divide the range, each row has an additional element. The next row overwrites it, but in the
// last row it is written after the output's end, so the storage of out must have room for it.
#pragma once

#include "layers/Layer.h"

class RawSliceLayer final : public Layer {
public:
    // pos has an axis from 0 to 3, a start of at least 0 and an end within the input's extent.
    RawSliceLayer(nolk::Tensor input, nolk::Tensor output, nolk::SlicePos pos);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::SlicePos pos_;
};
