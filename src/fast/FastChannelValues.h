// Constants of channels, as kernels read them: in whole blocks of 16.
//   FastChannelValues slopes({0.1f, 0.2f}, 40);   // 0.1, and 39 times 0.2
//   const float* second = slopes.from(16);        // of the second block
// A file can announce many vectors of 32,767 zeros in a few bytes each, so equal values at the end are stored as one
// block. The passes and the layers share the values: a copy has the same ones.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "fast/FastLayout.h"
#include "layers/vectors.h"

class FastChannelValues {
public:
    FastChannelValues() = default;

    // values: of the first channels, at least one; all further channels have the last of them. channels: at least 1.
    FastChannelValues(const std::vector<float>& values, int channels) {
        const int blocks = std::min(blocksOf(static_cast<int>(values.size()) - 1) + 1, blocksOf(channels));
        own_ = (blocks < blocksOf(channels) ? blocks - 1 : blocks) * kFastBlock;
        std::vector<float> whole(static_cast<std::size_t>(blocks) * kFastBlock, values.back());
        std::copy(values.begin(), values.end(), whole.begin());
        blocks_ = std::make_shared<const std::vector<float>>(std::move(whole));
    }

    // The first values of the vector, which has at least as many as there are channels.
    FastChannelValues(const ChannelVector& vector, int channels)
        : FastChannelValues(vector.first(std::min(vector.storedSize(), channels - 1) + 1), channels) {}

    // The values from this channel to the last one of its block.
    const float* from(std::ptrdiff_t channel) const {
        return blocks_->data() + std::min(channel, static_cast<std::ptrdiff_t>(own_));
    }

    // Values of channels from here on are equal; whole blocks.
    int own() const { return own_; }
    std::size_t floats() const { return blocks_ ? blocks_->size() : 0; }

private:
    std::shared_ptr<const std::vector<float>> blocks_;
    int own_ = 0;
};
