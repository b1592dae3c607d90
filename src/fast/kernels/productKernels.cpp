#include <utility>

#include "fast/kernels/levelKernels.h"
#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {
namespace {

constexpr int kVectors = kFastBlock / kLanes;  // of a block

// The most pixels of a tile that has so many blocks: their sums, the weights of one tap and one factor fit into the
// registers. Tiles of few pixels need many blocks, because sums that do not wait for each other must fill the time that
// a fused multiply-add takes. More blocks than that would read weights from more places than necessary.
constexpr int mostPixels(int blocks) {
#if defined(__AVX512F__)
    return blocks == 8 ? 2 : blocks == 4 ? 5 : blocks == 3 ? 9 : 14;
#elif defined(__AVX2__) && defined(__FMA__)
    return blocks == 4 ? 1 : blocks == 2 ? 3 : 6;
#else
    return blocks == 4 ? 1 : blocks == 2 ? 2 : 6;
#endif
}

constexpr int kMostBlocks = kLanes == kFastBlock ? 8 : 4;  // of a tile, a power of 2

// The taps of a tile: some of each channel.
struct Taps {
    const std::int32_t* first;
    int channels, count;  // of each channel
    int step;             // from a channel to the next
};

// Where a tile begins.
struct Corner {
    Taps taps;
    const float* x;
    const float* weights;         // of the first tap
    std::ptrdiff_t weightsBlock;  // from a block to the next one
    const float* bias;
    float* y;
    const float* added;
    const float* next;        // weights of the first block that will be needed later
    std::ptrdiff_t nextStep;  // how far `next` moves with each pair of taps
};

using Tile = void (*)(const FastProduct&, const Corner&);

template <int kRows, int kPixels, int kBlocks, int kStep>
void productTile(const FastProduct& call, const Corner& at) {
    constexpr int kPlaces = kRows * kPixels, kWidth = kBlocks * kVectors;  // a place is a pixel of a row
    const std::ptrdiff_t xStep = kStep ? kStep : call.xStep;
    Vector sums[kPlaces * kWidth];
    NOLK_UNROLL
    for (int i = 0; i < kPlaces * kWidth; ++i) {
        const int row = i / kWidth / kPixels, pixel = i / kWidth % kPixels;
        const int block = i % kWidth / kVectors, lane = i % kVectors * kLanes;
        sums[i] = load(call.carryOn ? at.y + row * call.yRow + pixel * call.yStep + block * call.yBlock + lane
                                    : at.bias + block * kFastBlock + lane);
    }

    const auto addTap = [&](std::int32_t tap, const float* w) __attribute__((always_inline)) {
        const float* const x = at.x + tap;
        Vector weights[kWidth];
        NOLK_UNROLL
        for (int v = 0; v < kWidth; ++v) weights[v] = load(w + v / kVectors * at.weightsBlock + v % kVectors * kLanes);
        NOLK_UNROLL
        for (int place = 0; place < kPlaces; ++place) {
            const Vector factor = broadcast(x[place / kPixels * call.xRow + place % kPixels * xStep]);
            Vector* const sum = sums + place * kWidth;
            NOLK_UNROLL
            for (int v = 0; v < kWidth; ++v) sum[v] = fma(factor, weights[v], sum[v]);
        }
    };
    const float* next = at.next;
    // One prefetch for each tap, in turn from the first block and the second; more would cost time.
    for (int channel = 0; channel < at.taps.channels; ++channel) {
        const std::ptrdiff_t first = static_cast<std::ptrdiff_t>(channel) * at.taps.step;
        const float* w = at.weights + first * kFastBlock;
        const std::int32_t* tap = at.taps.first + first;
        const std::int32_t* const end = tap + at.taps.count;
        for (; end - tap > 1; tap += 2, w += 2 * kFastBlock, next += at.nextStep) {
            __builtin_prefetch(next, 0, 2);
            addTap(tap[0], w);
            if constexpr (kBlocks > 1) __builtin_prefetch(next + at.weightsBlock, 0, 2);
            addTap(tap[1], w + kFastBlock);
        }
        if (tap != end) addTap(*tap, w);
    }

    const Vector low = broadcast(call.low), high = broadcast(call.high);
    NOLK_UNROLL
    for (int i = 0; i < kPlaces * kWidth; ++i) {
        const int row = i / kWidth / kPixels, pixel = i / kWidth % kPixels;
        const int block = i % kWidth / kVectors, lane = i % kVectors * kLanes;
        if (at.added)
            sums[i] += load(at.added + row * call.addedRow + pixel * call.addedStep + block * call.addedBlock + lane);
        store(at.y + row * call.yRow + pixel * call.yStep + block * call.yBlock + lane,
              smallerOr(high, largerOr(low, sums[i])));
    }
}

template <int kRows, int kBlocks, int kStep, int... kPixels>
Tile tileOf(int pixels, std::integer_sequence<int, kPixels...>) {
    static constexpr Tile tiles[] = {nullptr, productTile<kRows, kPixels + 1, kBlocks, kStep>...};
    return tiles[pixels];
}

template <int kRows, int kBlocks, int kStep>
Tile tileOf(int pixels) {
    return tileOf<kRows, kBlocks, kStep>(pixels, std::make_integer_sequence<int, mostPixels(kBlocks) / kRows>());
}

template <int kRows, int kStep>
Tile tileOf(int pixels, int blocks) {
    switch (blocks) {
        case 8:
            return tileOf<kRows, kMostBlocks, kStep>(pixels);
        case 4:
            return tileOf<kRows, 4, kStep>(pixels);
        case 3:
            return tileOf < kRows, kMostBlocks == 8 ? 3 : 1, kStep > (pixels);
        case 2:
            return tileOf<kRows, 2, kStep>(pixels);
        default:
            return tileOf<kRows, 1, kStep>(pixels);
    }
}

Tile tileOf(int rows, int pixels, int blocks, std::ptrdiff_t step) {
    if (step == kFastBlock)
        return rows == 2 ? tileOf<2, kFastBlock>(pixels, blocks) : tileOf<1, kFastBlock>(pixels, blocks);
    if (step == 2 * kFastBlock)
        return rows == 2 ? tileOf<2, 2 * kFastBlock>(pixels, blocks) : tileOf<1, 2 * kFastBlock>(pixels, blocks);
    return rows == 2 ? tileOf<2, 0>(pixels, blocks) : tileOf<1, 0>(pixels, blocks);
}

// The part of a product that a loop over tiles is at.
struct Part {
    int rows, pixels, blocks;
    int lanes;  // of the last block
};

void copyLanes(const float* from, std::ptrdiff_t fromBlock, std::ptrdiff_t fromRow, std::ptrdiff_t fromStep, float* to,
               std::ptrdiff_t toBlock, std::ptrdiff_t toRow, std::ptrdiff_t toStep, const Part& part) {
    for (int b = 0; b < part.blocks; ++b)
        for (int r = 0; r < part.rows; ++r)
            for (int p = 0; p < part.pixels; ++p)
                for (int lane = 0; lane < kFastBlock; lane += kLanes) {
                    const int rest = (b + 1 < part.blocks ? kFastBlock : part.lanes) - lane;
                    const int n = rest > kLanes ? kLanes : rest;
                    if (n <= 0) break;
                    storePart(to + b * toBlock + r * toRow + p * toStep + lane,
                              loadPart(from + b * fromBlock + r * fromRow + p * fromStep + lane, n), n);
                }
}

// A tile whose last block has less than 16 lanes goes through a copy with whole blocks.
void partialTile(const FastProduct& call, const Corner& at, const Part& part, Tile tile) {
    constexpr int kRow = 14 * kFastBlock, kBlock = 2 * kRow;
    float y[8 * kBlock], added[8 * kBlock];
    FastProduct copy = call;
    copy.yBlock = copy.addedBlock = kBlock;
    copy.yRow = copy.addedRow = kRow;
    copy.yStep = copy.addedStep = kFastBlock;
    if (call.carryOn) copyLanes(at.y, call.yBlock, call.yRow, call.yStep, y, kBlock, kRow, kFastBlock, part);
    if (call.added)
        copyLanes(at.added, call.addedBlock, call.addedRow, call.addedStep, added, kBlock, kRow, kFastBlock, part);
    tile(copy,
         {at.taps, at.x, at.weights, at.weightsBlock, at.bias, y, call.added ? added : nullptr, at.next, at.nextStep});
    copyLanes(y, kBlock, kRow, kFastBlock, at.y, call.yBlock, call.yRow, call.yStep, part);
}

FastTapRange rangeOf(const FastProduct& call, int row) {
    return call.kernelRows.count > 0 ? call.kernelRows.tapsOf(row) : FastTapRange{0, call.tapCount};
}

Taps tapsOf(const FastProduct& call, const FastTapRange& range) {
    const int step = call.kernelRows.channelTaps();
    if (step == 0 || range.count == step) return {call.taps, 1, call.tapCount, 0};
    return {call.taps + range.first, call.tapCount / step, range.count, step};
}

// How many outputs with all their taps take as long as all outputs of the call.
int wholeOutputs(const FastProduct& call) {
    if (call.kernelRows.count == 0) return call.rows * call.pixels;
    std::int64_t taps = 0;
    for (int row = 0; row < call.rows; ++row) taps += call.kernelRows.tapsOf(row).count;
    return static_cast<int>(taps * call.pixels / call.kernelRows.channelTaps()) + 1;
}

// All rows and pixels of a few blocks. next: the weights that are needed afterwards, for as many taps, or null. They
// come from memory, so each tile prefetches a part of them.
void productOfBlocks(const FastProduct& call, int blocks, std::ptrdiff_t weightsBlock, const float* next) {
    const int most = mostPixels(blocks), tiles = quotientUp(call.pixels, most), outputs = wholeOutputs(call);
    const float* const end = next ? next + static_cast<std::ptrdiff_t>(call.tapCount) * kFastBlock : nullptr;
    for (int row = 0, rowsLeft = 0; row < call.rows; row += rowsLeft) {
        const FastTapRange range = rangeOf(call, row);
        const Taps taps = tapsOf(call, range);
        const bool isPair = call.rows - row > 1 && range == rangeOf(call, row + 1);
        rowsLeft = isPair ? 2 : 1;
        for (int t = 0, pixel = 0, pixels = 0; t < tiles; ++t, pixel += pixels) {
            pixels = quotientUp(call.pixels - pixel, tiles - t);
            const int rows = pixels > most / 2 ? 1 : rowsLeft;
            const Tile tile = tileOf(rows, pixels, blocks, call.xStep);
            const int part = quotientUp(2 * kFastBlock * rows * pixels, outputs);
            for (int r = row; r < row + rowsLeft; r += rows) {
                const std::ptrdiff_t step = next >= end ? 0 : part < kFastBlock ? part : kFastBlock;
                const Corner at{taps,
                                call.x + r * call.xRow + pixel * call.xStep,
                                call.weights + (taps.first - call.taps) * kFastBlock,
                                weightsBlock,
                                call.bias,
                                call.y + r * call.yRow + pixel * call.yStep,
                                call.added ? call.added + r * call.addedRow + pixel * call.addedStep : nullptr,
                                step ? next : call.weights,
                                step};
                next += step * taps.channels * (taps.count / 2);
                if (call.lanes == kFastBlock)
                    tile(call, at);
                else
                    partialTile(call, at, {rows, pixels, blocks, call.lanes}, tile);
            }
        }
    }
}

// If the blocks have very many weights, it takes some taps at a time and keeps the sums in y: the weights then come
// from memory all along the way, not at once for the first tile.
void productOfChunks(const FastProduct& call, int firstBlock, int blocks) {
    constexpr int kMostWeights = 1 << 17, kChunkWeights = 1 << 13;
    static const float zeros[8 * kFastBlock] = {};
    const std::ptrdiff_t weightsBlock = static_cast<std::ptrdiff_t>(call.tapCount) * kFastBlock;
    const bool isLast = firstBlock + blocks == call.blocks;
    FastProduct some = call;
    some.bias = call.bias ? call.bias + firstBlock * kFastBlock : zeros;
    some.y = call.y + firstBlock * call.yBlock;
    some.lanes = isLast ? call.lanes : kFastBlock;
    const float* const weights = call.weights + firstBlock * weightsBlock;
    const float* const added = call.added ? call.added + firstBlock * call.addedBlock : nullptr;

    const int tiles = quotientUp(call.rows * call.pixels, mostPixels(blocks));
    const bool inChunks = blocks * weightsBlock > kMostWeights && tiles >= 4 && added != some.y;
    const int channel = call.kernelRows.channelTaps(), unit = channel > 0 ? channel : 1;  // a chunk has whole channels
    const int units = call.tapCount / unit, most = kChunkWeights / (blocks * kFastBlock * unit);
    const int chunks = inChunks ? quotientUp(units, most > 1 ? most : 1) : 1;
    for (int c = 0, tap = 0; c < chunks; ++c, tap += some.tapCount) {
        const bool isLastChunk = c + 1 == chunks;
        some.taps = call.taps + tap;
        some.tapCount = quotientUp(units - tap / unit, chunks - c) * unit;
        some.weights = weights + static_cast<std::ptrdiff_t>(tap) * kFastBlock;
        some.carryOn = call.carryOn || c > 0;
        some.added = isLastChunk ? added : nullptr;
        some.low = isLastChunk ? call.low : -__builtin_inff();
        some.high = isLastChunk ? call.high : __builtin_inff();
        const float* const next =
            isLastChunk ? weights + blocks * weightsBlock : some.weights + some.tapCount * kFastBlock;
        productOfBlocks(some, blocks, weightsBlock, isLast && isLastChunk ? nullptr : next);
    }
}

// Blocks are the outer loop, so that the weights of a few stay in the cache.
void productOfStrip(const FastProduct& call) {
    const int columns = quotientUp(call.pixels, quotientUp(call.pixels, mostPixels(1)));
    const int pixels = call.rows > 1 && 2 * columns <= mostPixels(1) ? 2 * columns : columns;
    int group = kMostBlocks;
    while (group > 1 && mostPixels(group) < pixels) group /= 2;
    for (int block = 0; block < call.blocks; block += group) {
        const int left = call.blocks - block;
        while (group > left) group /= 2;
        if (group == 2 && left == 3 && kMostBlocks == 8) group = 3;
        productOfChunks(call, block, group);
    }
}

}  // namespace

// If all weights fit into the cache, it works in strips of a few rows or pixels whose inputs fit there too.
void product(const FastProduct& call) {
    constexpr int kMostWeights = 1 << 17, kMostInputs = 1 << 15;
    const std::int64_t weights = static_cast<std::int64_t>(call.tapCount) * call.blocks * kFastBlock;
    const std::int64_t inputs = static_cast<std::int64_t>(call.tapCount) * call.rows * call.pixels;
    if (weights > kMostWeights || inputs <= kMostInputs) return productOfStrip(call);
    const bool cutRows = call.rows > 1;
    const int unit = cutRows ? 2 : mostPixels(1), all = cutRows ? call.rows : call.pixels;
    const std::int64_t unitInputs = static_cast<std::int64_t>(call.tapCount) * unit * (cutRows ? call.pixels : 1);
    const int most = unit * static_cast<int>(unitInputs < kMostInputs ? kMostInputs / unitInputs : 1);
    FastProduct strip = call;
    for (int done = 0, size = 0; done < all; done += size) {
        size = all - done < most ? all - done : most;
        (cutRows ? strip.rows : strip.pixels) = size;
        if (cutRows) strip.kernelRows.top = call.kernelRows.top + std::int64_t{done} * call.kernelRows.stride;
        strip.x = call.x + done * (cutRows ? call.xRow : call.xStep);
        strip.y = call.y + done * (cutRows ? call.yRow : call.yStep);
        if (call.added) strip.added = call.added + done * (cutRows ? call.addedRow : call.addedStep);
        productOfStrip(strip);
    }
}

}  // namespace NOLK_FAST_LEVEL
