// Transposition of small squares in registers, which all changes of layout are made of.
#pragma once

#include <cstddef>

#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {

constexpr int kTile = kLanes < 8 ? 4 : 8;
using Quad = float __attribute__((vector_size(16)));
using QuadInMemory = float __attribute__((vector_size(16), aligned(4), may_alias));
using TileRow = float __attribute__((vector_size(kTile * sizeof(float))));
using TileRowInMemory = float __attribute__((vector_size(kTile * sizeof(float)), aligned(4), may_alias));

// Four floats of row i and, in a tile of 8, four of row i + 4 behind them. Transposing four such vectors within their
// quarters and halves gives rows of the result without any exchange between halves, which is slow.
inline TileRow loadQuads(const float* row, std::ptrdiff_t stride) {
    const Quad first = *reinterpret_cast<const QuadInMemory*>(row);
#if defined(__AVX2__) && defined(__FMA__)
    const Quad second = *reinterpret_cast<const QuadInMemory*>(row + 4 * stride);
    return __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
#else
    static_cast<void>(stride);
    return first;
#endif
}

#if defined(__AVX2__) && defined(__FMA__)
inline TileRow lowPairs(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 0, 8, 1, 9, 4, 12, 5, 13); }
inline TileRow highPairs(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 2, 10, 3, 11, 6, 14, 7, 15); }
inline TileRow lowHalves(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 0, 1, 8, 9, 4, 5, 12, 13); }
inline TileRow highHalves(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 2, 3, 10, 11, 6, 7, 14, 15); }
#else
inline TileRow lowPairs(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 0, 4, 1, 5); }
inline TileRow highPairs(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 2, 6, 3, 7); }
inline TileRow lowHalves(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 0, 1, 4, 5); }
inline TileRow highHalves(TileRow a, TileRow b) { return __builtin_shufflevector(a, b, 2, 3, 6, 7); }
#endif

// out[j * outStride + i] = in[i * inStride + j] for i and j below kTile.
inline void transposeTile(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride) {
    for (int j = 0; j < kTile; j += 4) {
        TileRow r[4];
        for (int i = 0; i < 4; ++i) r[i] = loadQuads(in + i * inStride + j, inStride);
        const TileRow low01 = lowPairs(r[0], r[1]), high01 = highPairs(r[0], r[1]);
        const TileRow low23 = lowPairs(r[2], r[3]), high23 = highPairs(r[2], r[3]);
        const auto place = [out, outStride](int k) { return reinterpret_cast<TileRowInMemory*>(out + k * outStride); };
        *place(j) = lowHalves(low01, low23);
        *place(j + 1) = highHalves(low01, low23);
        *place(j + 2) = lowHalves(high01, high23);
        *place(j + 3) = highHalves(high01, high23);
    }
}

// out[j * outStride + i] = in[i * inStride + j] for i below rows and j below columns, and 0 for i from rows to width.
struct Transposition {
    const float* in;
    std::ptrdiff_t inStride;
    int rows, columns, width;
    float* out;
    std::ptrdiff_t outStride;

    // The part from row i and column j on, kTile in both directions or what there is.
    void tile(int i, int j) const {
        const float* from = in + i * inStride + j;
        float* to = out + j * outStride + i;
        if (i + kTile <= rows && j + kTile <= columns) return transposeTile(from, inStride, to, outStride);
        const int tileRows = part(rows - i), tileColumns = part(columns - j), tileWidth = part(width - i);
        float source[kTile * kTile] = {}, result[kTile * kTile];
        for (int k = 0; k < tileRows; ++k)
            storePart(source + k * kTile, loadPart(from + k * inStride, tileColumns), tileColumns);
        if (tileWidth == kTile && tileColumns == kTile) return transposeTile(source, kTile, to, outStride);
        transposeTile(source, kTile, result, kTile);
        for (int k = 0; k < tileColumns; ++k)
            storePart(to + k * outStride, loadPart(result + k * kTile, tileWidth), tileWidth);
    }

private:
    static int part(int count) { return count < 0 ? 0 : count < kTile ? count : kTile; }
};

}  // namespace NOLK_FAST_LEVEL
