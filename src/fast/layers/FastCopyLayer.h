// Copies a tensor into another layout, or to where it has another border.
//   in, out [n, c, h, w]
#pragma once

#include "fast/FastLayer.h"

class FastCopyLayer final : public FastLayer {
public:
    FastCopyLayer(const FastView& input, const FastView& output) : input_(input), output_(output) {}

    void run(const FastRun& run) const override;

private:
    FastView input_, output_;
};

// Copies planes [begin, end) of a sample. A plane is a channel, or a block of channels where one of the two has blocks.
void copyPlanes(const FastKernels& kernels, const FastView& from, float* fromBase, const FastView& to, float* toBase,
                int sample, int begin, int end);

// The number of such planes.
int planesToCopy(const FastView& from, const FastView& to);
