#include "fast/layers/FastChannelsLayer.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// Copies `lanes` floats of each of `pixels` pixels.
template <typename Lanes>
void copyLanes(const float* x, float* y, int pixels, Lanes lanes) {
    for (int i = 0; i < pixels; ++i, x += kFastBlock, y += kFastBlock)
        std::memcpy(y, x, static_cast<std::size_t>(lanes) * sizeof(float));
}

}  // namespace

FastChannelsLayer::FastChannelsLayer(std::vector<FastView> inputs, int skipped, const FastView& output)
    : inputs_(std::move(inputs)), output_(output), pieces_(static_cast<std::size_t>(output.strides.planes)) {
    int channel = -skipped;  // of the output
    for (std::size_t i = 0; i < inputs_.size(); ++i)
        for (int c = 0; c < inputs_[i].shape.c;) {
            const int sourceLane = c % kFastBlock;
            int lanes = std::min(inputs_[i].shape.c - c, kFastBlock - sourceLane);
            if (channel < 0)
                lanes = std::min(lanes, -channel);
            else if (channel < output.shape.c)
                lanes = std::min({lanes, kFastBlock - channel % kFastBlock, output.shape.c - channel});
            if (channel >= 0 && channel < output.shape.c)
                pieces_[static_cast<std::size_t>(channel / kFastBlock)].push_back(
                    {i, c / kFastBlock, sourceLane, channel % kFastBlock, lanes});
            c += lanes;
            channel += lanes;
        }
}

void FastChannelsLayer::run(const FastRun& run) const {
    const int planes = output_.strides.planes;
    run.team.forEach(output_.shape.n * planes, 2 * output_.strides.plane, [&](int task) {
        const int sample = task / planes, block = task % planes;
        for (const Piece& piece : pieces_[static_cast<std::size_t>(block)]) copy(run, sample, block, piece);
        output_.clearBorder(output_.plane(run, sample, block), 0, output_.shape.h);
    });
}

void FastChannelsLayer::copy(const FastRun& run, int sample, int block, const Piece& piece) const {
    const FastView& input = inputs_[piece.input];
    const float* x = input.plane(run, sample, piece.sourceBlock) + piece.sourceLane;
    float* y = output_.plane(run, sample, block) + piece.lane;
    const bool dense = input.isDense() && output_.isDense();
    const int rows = dense ? 1 : output_.shape.h;
    const int pixels = dense ? output_.shape.h * output_.shape.w : output_.shape.w;
    for (int row = 0; row < rows; ++row, x += input.strides.row, y += output_.strides.row) {
        // A copy of constant length needs no function call.
        if (piece.lanes == kFastBlock)
            copyLanes(x, y, pixels, std::integral_constant<int, kFastBlock>());
        else if (piece.lanes == kFastBlock / 2)
            copyLanes(x, y, pixels, std::integral_constant<int, kFastBlock / 2>());
        else
            copyLanes(x, y, pixels, piece.lanes);
    }
}
