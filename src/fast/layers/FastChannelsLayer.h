// Puts channels of some tensors together: a concatenation whose parts do not begin with blocks, or a slice.
//   in [n, c, h, w] each, out [n, c, h, w], all in blocks
#pragma once

#include <vector>

#include "fast/FastLayer.h"

class FastChannelsLayer final : public FastLayer {
public:
    // The output's channels are those of the inputs, one after the other, without the first `skipped` of them.
    FastChannelsLayer(std::vector<FastView> inputs, int skipped, const FastView& output);

    void run(const FastRun& run) const override;

private:
    // Lanes of one block that come from one block of an input.
    struct Piece {
        std::size_t input;
        int sourceBlock, sourceLane, lane, lanes;
    };

    void copy(const FastRun& run, int sample, int block, const Piece& piece) const;

    std::vector<FastView> inputs_;
    FastView output_;
    std::vector<std::vector<Piece>> pieces_;  // of each block of the output
};
