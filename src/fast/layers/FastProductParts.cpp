#include "fast/layers/FastProductParts.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <utility>

namespace {

std::ptrdiff_t tapsOf(const nolk::Weights& w) { return std::ptrdiff_t{w.inChannels} * w.kernelH * w.kernelW; }

// Splits the outputs of each group so that no part crosses the end of a block, unless it begins and ends with blocks.
// Without taps every output is its bias, and all groups are one.
std::vector<FastProductPart> partsOf(const nolk::Weights& w, std::int64_t lists) {
    std::vector<FastProductPart> parts;
    const bool joins = w.groups > 1 && tapsOf(w) == 0;
    const int groups = joins ? 1 : w.groups;
    const int outChannels = joins ? w.groups * w.outChannels : w.outChannels;
    for (int g = 0; g < groups; ++g) {
        const int begin = g * outChannels, end = begin + outChannels;
        const bool whole = groups == 1 || outChannels % kFastBlock == 0;
        for (int o = begin; o < end;) {
            FastProductPart part;
            part.taps = lists > 1 ? g : 0;
            part.firstBlock = o / kFastBlock;
            part.firstLane = o % kFastBlock;
            const int next = whole ? end : std::min(end, (part.firstBlock + 1) * kFastBlock);
            part.blocks = whole ? blocksOf(outChannels) : 1;
            part.lanes = whole ? kFastBlock : next - o;
            parts.push_back(part);
            o = next;
        }
    }
    return parts;
}

// Gives each part its place in the packed arrays, and returns the number of their blocks. Groups that share their
// weights share the packed ones too, where they are divided in the same way.
std::ptrdiff_t placeParts(const nolk::Weights& w, std::vector<FastProductPart>& parts) {
    std::map<std::pair<int, int>, std::ptrdiff_t> places;
    std::ptrdiff_t blocks = 0;
    for (FastProductPart& part : parts) {
        const int first = part.firstOutput();
        std::ptrdiff_t place = blocks;
        if (w.shared) place = places.emplace(std::pair(first % w.outChannels, part.lanes), blocks).first->second;
        if (place == blocks) blocks += part.blocks;
        part.weights = place * tapsOf(w) * kFastBlock;
        part.bias = place * kFastBlock;
    }
    return blocks;
}

// Stores the weights of one lane, unless all are zero, as in memory that nobody has written yet: weights which a file
// announces but does not contain take no memory.
void storeLane(const float* from, float* to, std::ptrdiff_t count) {
    std::uint32_t any = 0;
    for (std::ptrdiff_t k = 0; k < count; ++k) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, from + k, sizeof bits);
        any |= bits;
    }
    if (any == 0) return;
    for (std::ptrdiff_t k = 0; k < count; ++k) to[k * kFastBlock] = from[k];
}

}  // namespace

double FastProductParts::packedFloats(const nolk::Weights& w, std::int64_t lists) {
    std::vector<FastProductPart> parts = partsOf(w, lists);
    const double taps = static_cast<double>(tapsOf(w));
    const double listBytes =
        static_cast<double>(lists) * (taps * sizeof(std::int32_t) + sizeof(std::vector<std::int32_t>));
    const double partBytes = static_cast<double>(parts.capacity() * sizeof(FastProductPart));
    return static_cast<double>(placeParts(w, parts)) * kFastBlock * (taps + 1.0) +
           (listBytes + partBytes) / sizeof(float);
}

FastProductParts FastProductParts::pack(const nolk::Weights& w, std::vector<std::vector<std::int32_t>> tapLists) {
    FastProductParts packed;
    packed.taps = std::move(tapLists);
    packed.parts = partsOf(w, static_cast<std::int64_t>(packed.taps.size()));
    const std::ptrdiff_t tapCount = tapsOf(w), blocks = placeParts(w, packed.parts);
    auto weights = std::make_unique<FastPackedFloats>(static_cast<std::size_t>(blocks * tapCount * kFastBlock));
    auto bias = std::make_unique<FastPackedFloats>(static_cast<std::size_t>(blocks * kFastBlock));
    for (const FastProductPart& part : packed.parts) {
        const int first = part.firstOutput();
        const int last = std::min(first + (part.blocks - 1) * kFastBlock + part.lanes, w.groups * w.outChannels);
        // Some taps of all lanes at a time, so that the cache lines they share stay near.
        constexpr std::ptrdiff_t kTapsAtOnce = 128;
        for (int begin = first; begin < last; begin += kFastBlock)
            for (std::ptrdiff_t tap = 0; tap < tapCount; tap += kTapsAtOnce)
                for (int o = begin; o < std::min(begin + kFastBlock, last); ++o) {
                    const float* const from = w.weight + (w.shared ? o % w.outChannels : o) * tapCount;
                    float* const to = weights->data() + part.weights + (begin - first) * tapCount + o - begin;
                    storeLane(from + tap, to + tap * kFastBlock, std::min(kTapsAtOnce, tapCount - tap));
                }
        if (w.bias)
            for (int o = first; o < last; ++o)
                bias->data()[part.bias + o - first] = w.bias[w.shared ? o % w.outChannels : o];
    }
    packed.weights = shareFloats(std::move(weights));
    packed.bias = shareFloats(std::move(bias));
    return packed;
}

void FastProductParts::set(FastProduct& call, const FastProductPart& part, int begin, int end) const {
    const std::vector<std::int32_t>& list = taps[static_cast<std::size_t>(part.taps)];
    call.taps = list.data();
    call.tapCount = static_cast<int>(list.size());
    call.weights = weights->data() + part.weights + std::ptrdiff_t{begin} * call.tapCount * kFastBlock;
    call.bias = bias->data() + part.bias + begin * kFastBlock;
    call.blocks = end - begin;
    call.lanes = end == part.blocks ? part.lanes : kFastBlock;
}

std::vector<std::vector<std::int32_t>> tapsOf(const FastConvolution& op, const FastView& input) {
    const nolk::Weights& w = op.weights;
    const bool blocks = input.layout == FastLayout::blocks;
    std::vector<std::vector<std::int32_t>> lists(static_cast<std::size_t>(w.groups));
    for (int g = 0; g < w.groups; ++g) {
        std::vector<std::int32_t>& list = lists[static_cast<std::size_t>(g)];
        list.reserve(static_cast<std::size_t>(tapsOf(w)));
        for (int i = 0; i < w.inChannels; ++i) {
            const int c = g * w.inChannels + i;
            const std::ptrdiff_t channel =
                blocks ? c / kFastBlock * input.strides.plane + c % kFastBlock : c * input.strides.plane;
            for (int kh = 0; kh < w.kernelH; ++kh)
                for (int kw = 0; kw < w.kernelW; ++kw)
                    list.push_back(static_cast<std::int32_t>(channel + kh * op.dilation.h * input.strides.row +
                                                             kw * op.dilation.w * input.strides.pixel));
        }
    }
    return lists;
}
