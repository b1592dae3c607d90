// Moves every element (i0, i1, i2, i3) of in to (i[p0], i[p1], i[p2], i[p3]) of out, p being the axes.
//   in, out plain; p is a permutation of 0 to 3
#pragma once

#include "fast/FastLayer.h"

class FastTransposeLayer final : public FastLayer {
public:
    FastTransposeLayer(nolk::Perm perm, const FastView& input, const FastView& output);

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
    // Extents in the order of the output, neighbours that stay together merged, and their strides in the input.
    int extents_[4] = {1, 1, 1, 1};
    std::ptrdiff_t strides_[4] = {0, 0, 0, 0};
};
