// Sums of 16 partial sums: element number i belongs to partial sum i % 16, and the partial sums are added in a tree
// that is the same for every width of registers. Partial sums start from -0, which changes no sum.
#pragma once

#include "fast/kernels/products.h"
#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {

constexpr int kPartialSums = 16;
constexpr int kParts = kFastBlock / kLanes;  // vectors that make up a block

// Combines the partial results i and i + 8, then i and i + 4, i + 2, i + 1. Lanes stay apart.
template <typename Reduction>
inline Vector combineTree(const Vector (&parts)[kPartialSums], const Reduction&) {
    Vector sums[kPartialSums / 2];
    for (int i = 0; i < 8; ++i) sums[i] = Reduction::combine(parts[i], parts[i + 8]);
    for (int i = 0; i < 4; ++i) sums[i] = Reduction::combine(sums[i], sums[i + 4]);
    for (int i = 0; i < 2; ++i) sums[i] = Reduction::combine(sums[i], sums[i + 2]);
    return Reduction::combine(sums[0], sums[1]);
}

// Moves lane i + kBy to lane i.
template <int kBy>
inline Vector moveLanes(Vector v) {
#if defined(__AVX512F__)
    return __builtin_shufflevector(v, v, kBy, kBy + 1, kBy + 2, kBy + 3, kBy + 4, kBy + 5, kBy + 6, kBy + 7, kBy + 8,
                                   kBy + 9, kBy + 10, kBy + 11, kBy + 12, kBy + 13, kBy + 14, kBy + 15);
#elif defined(__AVX2__) && defined(__FMA__)
    return __builtin_shufflevector(v, v, kBy, kBy + 1, kBy + 2, kBy + 3, kBy + 4, kBy + 5, kBy + 6, kBy + 7);
#else
    return __builtin_shufflevector(v, v, kBy, kBy + 1, kBy + 2, kBy + 3);
#endif
}

// The same tree for partial results that are the lanes of a block. The result is in lane 0.
template <typename Reduction>
inline Vector combineLanes(const Vector (&parts)[kParts], const Reduction&) {
    Vector sums[kParts];
    for (int i = 0; i < kParts; ++i) sums[i] = parts[i];
    for (int count = kParts / 2; count > 0; count /= 2)
        for (int i = 0; i < count; ++i) sums[i] = Reduction::combine(sums[i], sums[i + count]);
    Vector sum = sums[0];
    if constexpr (kLanes > 8) sum = Reduction::combine(sum, moveLanes<8>(sum));
    if constexpr (kLanes > 4) sum = Reduction::combine(sum, moveLanes<4>(sum));
    sum = Reduction::combine(sum, moveLanes<2>(sum));
    return Reduction::combine(sum, moveLanes<1>(sum));
}

}  // namespace NOLK_FAST_LEVEL
