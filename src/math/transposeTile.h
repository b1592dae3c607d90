// Turns eight rows into eight columns: the step that im2col and the transposition of matrices are made of.
#pragma once

#include <cstddef>

constexpr int kTile = 8;

// Eight floats at any address. The type is packed, so all compilers treat it as unaligned and keep it in a register.
struct __attribute__((packed, may_alias)) TileRow {
    using Vector = float __attribute__((vector_size(kTile * sizeof(float))));
    Vector floats;
};

// out[j * outStride + i] = in[i][j * kStep] for i and j below kTile. The rows must not overlap out.
template <int kStep = 1>
inline __attribute__((always_inline)) void transposeTile(const float* const (&in)[kTile], float* out,
                                                         std::ptrdiff_t outStride) {
    static_assert(kStep == 1 || kStep == 2);
    const auto row = [&in](int i, int first) { return reinterpret_cast<const TileRow*>(in[i] + first); };
    TileRow::Vector r[kTile], s[kTile];
    for (int i = 0; i < kTile; ++i) {
        r[i] = row(i, 0)->floats;
        // The second load begins at 7, not 8, so that it ends with the last float that is needed, 14.
        if (kStep == 2) r[i] = __builtin_shufflevector(r[i], row(i, 7)->floats, 0, 2, 4, 6, 9, 11, 13, 15);
    }
    // Interleaves pairs of rows, then pairs of pairs, each within the halves of a vector. The halves are exchanged
    // last.
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
        reinterpret_cast<TileRow*>(out + j * outStride)->floats =
            __builtin_shufflevector(r[j], r[j + 4], 0, 1, 2, 3, 8, 9, 10, 11);
        reinterpret_cast<TileRow*>(out + (j + 4) * outStride)->floats =
            __builtin_shufflevector(r[j], r[j + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    }
}
