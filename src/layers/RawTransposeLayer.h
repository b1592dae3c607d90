// Moves every element (i0, i1, i2, i3) of in to (i[p0], i[p1], i[p2], i[p3]) of out, p being the permutation's axes.
// in, out [n, c, h, w]; out must not overlap in. If an axis occurs twice in p, several elements may go to one place and
// none to others: the last element in the input's order counts, and the other places stay unchanged.
#pragma once

#include <cstddef>

#include "layers/Layer.h"

class RawTransposeLayer final : public Layer {
public:
    // The caller sets desc, because a reshape uses this layer too.
    RawTransposeLayer(nolk::Tensor input, nolk::Tensor output, nolk::Perm perm);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void moveInOrder() const;
    void transposePlanes(int axis) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::Perm perm_;
    int extents_[4];                            // of the input, h and w merged if they stay adjacent
    std::ptrdiff_t strides_[4] = {0, 0, 0, 0};  // of the input's axes in the output
};
