#include "fast/layers/FastChannelsLayer.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace {

// Copies `lanes` floats of each of `pixels` pixels.
template <typename Lanes>
void copyLanes(const float* x, float* y, int pixels, Lanes lanes) {
    for (int i = 0; i < pixels; ++i, x += kFastBlock, y += kFastBlock)
        std::memcpy(y, x, static_cast<std::size_t>(lanes) * sizeof(float));
}

}  // namespace

FastChannelsLayer::FastChannelsLayer(const std::vector<FastView>& inputs, int skipped, const FastView& output)
    : output_(output) {
    inputs_.reserve(inputs.size());
    int channel = -skipped;
    for (const FastView& input : inputs) {
        inputs_.push_back({input, channel, channel + input.shape.c});
        channel += input.shape.c;
    }
}

void FastChannelsLayer::run(const FastRun& run) const {
    const int planes = output_.strides.planes;
    run.team.forEach(output_.shape.n * planes, 2 * output_.strides.plane, [&](int task) {
        const int sample = task / planes, block = task % planes;
        fill(run, sample, block);
        output_.clearBorder(output_.plane(run, sample, block), 0, output_.shape.h);
    });
}

// The pieces of a block are computed in each run: a list of them may be far longer than the file.
void FastChannelsLayer::fill(const FastRun& run, int sample, int block) const {
    const int begin = block * kFastBlock, end = std::min(begin + kFastBlock, output_.shape.c);
    auto input = std::partition_point(inputs_.begin(), inputs_.end(), [&](const Input& i) { return i.end <= begin; });
    for (; input != inputs_.end() && input->begin < end; ++input) {
        const int last = std::min(end, input->end);
        for (int channel = std::max(begin, input->begin); channel < last;) {
            const int source = channel - input->begin, sourceLane = source % kFastBlock;
            const int lanes = std::min(last - channel, kFastBlock - sourceLane);
            copy(run, sample, block, input->view, {source / kFastBlock, sourceLane, channel - begin, lanes});
            channel += lanes;
        }
    }
}

void FastChannelsLayer::copy(const FastRun& run, int sample, int block, const FastView& input,
                             const Piece& piece) const {
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
