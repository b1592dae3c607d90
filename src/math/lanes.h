// A vector register of floats, for the few loops whose sums must stay in registers, which compilers do not achieve by
// themselves. Lanes are independent, so every element has the bits that a plain loop would give.
//   Lanes sum = broadcast(0.0f);  sum = fma(loadLanes(x), broadcast(factor), sum);  storeLanes(y, sum);
#pragma once

#include <cmath>
#if defined(__AVX__) && defined(__FMA__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

#include "math/unaligned.h"

#ifdef __AVX__
constexpr int kLanes = 8;
#else
constexpr int kLanes = 4;
#endif
using Lanes = float __attribute__((vector_size(kLanes * sizeof(float))));

inline Lanes loadLanes(const float* p) {
    Lanes v;
    loadVector(v, p);
    return v;
}

inline void storeLanes(float* p, Lanes v) { storeVector(p, v); }

// x in every lane; x - 0 keeps the sign of -0, which x + 0 would not.
inline Lanes broadcast(float x) { return x - Lanes{}; }

// a * b + c, rounded once. Uses intrinsics, because compilers do not unroll loops that contain a loop over the lanes.
inline Lanes fma(Lanes a, Lanes b, Lanes c) {
#if defined(__AVX__) && defined(__FMA__)
    return _mm256_fmadd_ps(a, b, c);
#elif defined(__ARM_NEON)
    return vfmaq_f32(c, a, b);
#else
    Lanes sum;
    for (int i = 0; i < kLanes; ++i) sum[i] = std::fma(a[i], b[i], c[i]);
    return sum;
#endif
}
