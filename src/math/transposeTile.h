// Turns eight rows into eight columns: the step that im2col and the transposition of matrices are made of.
#pragma once

#include <cstddef>

#include "math/unaligned.h"

constexpr int kTile = 8;

// Eight floats, each kStep behind the one before it.
using TileRow = float __attribute__((vector_size(kTile * sizeof(float))));
template <int kStep>
void loadTileRow(TileRow& row, const float* p) {
    static_assert(kStep == 1 || kStep == 2);
    loadVector(row, p);
    if (kStep == 1) return;
    TileRow end;
    loadVector(end, p + 7);  // ends with the last float that is wanted
    row = __builtin_shufflevector(row, end, 0, 2, 4, 6, 9, 11, 13, 15);
}

// out[j * outStride + i] = in[i][j * kStep] for i and j below kTile. The rows must not overlap out.
template <int kStep = 1>
void transposeTile(const float* const (&in)[kTile], float* out, std::ptrdiff_t outStride) {
    TileRow r[kTile], s[kTile];
    for (int i = 0; i < kTile; ++i) loadTileRow<kStep>(r[i], in[i]);
    // Pairs of rows, then pairs of pairs, each within the halves of a vector; the halves come last.
    for (int i = 0; i < kTile; i += 2) {
        s[i] = __builtin_shufflevector(r[i], r[i + 1], 0, 8, 1, 9, 4, 12, 5, 13);
        s[i + 1] = __builtin_shufflevector(r[i], r[i + 1], 2, 10, 3, 11, 6, 14, 7, 15);
    }
    for (int i = 0; i < kTile; i += 4)
        for (int half = 0; half < 2; ++half) {
            r[i + 2 * half] = __builtin_shufflevector(s[i + half], s[i + 2 + half], 0, 1, 8, 9, 4, 5, 12, 13);
            r[i + 2 * half + 1] = __builtin_shufflevector(s[i + half], s[i + 2 + half], 2, 3, 10, 11, 6, 7, 14, 15);
        }
    for (int j = 0; j < kTile / 2; ++j) {
        storeVector(out + j * outStride, __builtin_shufflevector(r[j], r[j + 4], 0, 1, 2, 3, 8, 9, 10, 11));
        storeVector(out + (j + 4) * outStride, __builtin_shufflevector(r[j], r[j + 4], 4, 5, 6, 7, 12, 13, 14, 15));
    }
}
