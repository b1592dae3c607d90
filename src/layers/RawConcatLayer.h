// Joins tensors along an axis (0 = n, 1 = c, 2 = h, 3 = w; -4 to -1 mean the same axes).
//   in [n, c, h, w] each, extents equal except at the axis; out has the sum of the extents at the axis
// Another axis prints a line to standard output and copies nothing.
#pragma once

#include <vector>

#include "layers/Layer.h"

class RawConcatLayer final : public Layer {
public:
    RawConcatLayer(std::vector<nolk::Tensor> inputs, nolk::Tensor output, int axis);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return inputs_.front(); }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void joinSamples() const;
    void joinChannels() const;
    void joinRows() const;
    void joinColumns() const;

    std::vector<nolk::Tensor> inputs_;
    nolk::Tensor output_;
    int axis_;
};
