// Transposition of small squares in registers, which all changes of layout are made of.
#pragma once

#include <cstddef>

#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {

constexpr int kTile = kLanes < 8 ? 4 : 8;
using Quad = float __attribute__((vector_size(16)));
using TileRow = float __attribute__((vector_size(kTile * sizeof(float))));

// Four floats of row i and, in a tile of 8, four of row i + 4 behind them; zeros for rows that do not exist.
// Transposing four such vectors within their quarters and halves gives rows of the result without any exchange between
// halves, which is slow.
inline TileRow loadQuads(const float* in, std::ptrdiff_t stride, int i, int rows) {
    const auto quad = [=](int k) {
        Quad v{};
        if (k < rows) __builtin_memcpy(&v, in + k * stride, sizeof v);
        return v;
    };
#if defined(__AVX2__) && defined(__FMA__)
    return __builtin_shufflevector(quad(i), quad(i + 4), 0, 1, 2, 3, 4, 5, 6, 7);
#else
    return quad(i);
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

// out[j * outStride + i] = in[i * inStride + j] for i below kTile and j below columns; rows from `rows` on count as
// zeros. Reads kTile floats of every row that exists.
inline void transposeTile(const float* in, std::ptrdiff_t inStride, int rows, float* out, std::ptrdiff_t outStride,
                          int columns) {
    for (int j = 0; j < kTile; j += 4) {
        if (j >= columns) return;
        TileRow r[4];
        for (int i = 0; i < 4; ++i) r[i] = loadQuads(in + j, inStride, i, rows);
        const TileRow low01 = lowPairs(r[0], r[1]), high01 = highPairs(r[0], r[1]);
        const TileRow low23 = lowPairs(r[2], r[3]), high23 = highPairs(r[2], r[3]);
        const auto write = [=](int k, TileRow v) {
            if (k < columns) __builtin_memcpy(out + k * outStride, &v, sizeof v);
        };
        write(j, lowHalves(low01, low23));
        write(j + 1, highHalves(low01, low23));
        write(j + 2, lowHalves(high01, high23));
        write(j + 3, highHalves(high01, high23));
    }
}

// out[j * outStride + i] = in[i * inStride + j] for i below rows and j below columns, and 0 for i from rows to width.
struct Transposition {
    const float* in;
    std::ptrdiff_t inStride;
    int rows, columns;
    int readable;  // floats of every row of in, at least `columns`
    float* out;
    std::ptrdiff_t outStride;
    int width;  // floats of every row of out, at least `rows`

    // The part from row i and column j on, kTile in both directions or what there is.
    void tile(int i, int j) const {
        const float* from = in + i * inStride + j;
        float* to = out + j * outStride + i;
        if (i + kTile <= rows && j + kTile <= columns)
            return transposeTile(from, inStride, kTile, to, outStride, kTile);
        const int tileRows = part(rows - i), tileColumns = part(columns - j), tileWidth = part(width - i);
        if (tileWidth == kTile && j + kTile <= readable)
            return transposeTile(from, inStride, tileRows, to, outStride, tileColumns);
        float source[kTile * kTile], result[kTile * kTile];
        for (int k = 0; k < tileRows; ++k)
            storePart(source + k * kTile, loadPart(from + k * inStride, tileColumns), kTile);
        transposeTile(source, kTile, tileRows, result, kTile, kTile);
        for (int k = 0; k < tileColumns; ++k)
            storePart(to + k * outStride, loadPart(result + k * kTile, tileWidth), tileWidth);
    }

private:
    static int part(int count) { return count < 0 ? 0 : count < kTile ? count : kTile; }
};

}  // namespace NOLK_FAST_LEVEL
