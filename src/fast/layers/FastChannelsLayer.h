// Puts channels of some tensors together: a concatenation or a slice where channels change their place in a block
// of 16, or a concatenation of many copies. Otherwise chooseLayouts lets the tensors share memory, without a layer.
//   in [n, c, h, w] each, out [n, c, h, w], all in blocks
#pragma once

#include <vector>

#include "fast/FastLayer.h"

class FastChannelsLayer final : public FastLayer {
public:
    // The output's channels are those of the inputs, one after the other, without the first `skipped` of them.
    FastChannelsLayer(const std::vector<FastView>& inputs, int skipped, const FastView& output);

    void run(const FastRun& run) const override;

private:
    struct Input {
        FastView view;
        int begin, end;  // the output's channels that it becomes; some may lie outside the output
    };

    // Lanes of one block that come from one block of an input.
    struct Piece {
        int sourceBlock, sourceLane, lane, lanes;
    };

    void fill(const FastRun& run, int sample, int block) const;
    void copy(const FastRun& run, int sample, int block, const FastView& input, const Piece& piece) const;

    std::vector<Input> inputs_;
    FastView output_;
};
