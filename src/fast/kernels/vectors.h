// A vector register of floats, as wide as those of the instruction set that the file is compiled for.
//   Vector sum = broadcast(0.0f);  sum = fma(load(x), broadcast(factor), sum);  storePart(y, sum, 3);
// Everything lies in a namespace of the instruction set, because the linker keeps only one of the inline functions
// that have the same name. Lanes are independent, so every element has the bits that a plain loop would give. Vectors
// can also be added, compared and so on by operators; comparisons give a Mask.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#if defined(__AVX2__) && defined(__FMA__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

// Loops over registers are unrolled completely: else what they hold would lie in memory.
#ifdef __clang__
#define NOLK_UNROLL _Pragma("unroll")
#else
#define NOLK_UNROLL _Pragma("GCC unroll 32")
#endif

namespace NOLK_FAST_LEVEL {

#if defined(__AVX512F__)
constexpr int kLanes = 16;
#elif defined(__AVX2__) && defined(__FMA__)
constexpr int kLanes = 8;
#else
constexpr int kLanes = 4;
#endif
using Vector = float __attribute__((vector_size(kLanes * sizeof(float))));
using Mask = std::int32_t __attribute__((vector_size(kLanes * sizeof(float))));  // also integers, one in each lane

// At addresses of any alignment. memcpy compiles to one move.
inline Vector load(const float* p) {
    Vector v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
inline void store(float* p, Vector v) { std::memcpy(p, &v, sizeof v); }

// The first n lanes, 0 to kLanes: what lies behind them in memory is neither read nor written. The rest are zeros.
inline Vector loadPart(const float* p, int n) {
#if defined(__AVX512F__)
    return _mm512_maskz_loadu_ps(static_cast<__mmask16>((1u << n) - 1), p);
#elif defined(__AVX2__) && defined(__FMA__)
    const __m256i numbers = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    return _mm256_maskload_ps(p, _mm256_cmpgt_epi32(_mm256_set1_epi32(n), numbers));
#else
    if (n == kLanes) return load(p);
    Vector v{};
    for (int i = 0; i < kLanes - 1; ++i)
        if (i < n) v[i] = p[i];
    return v;
#endif
}

inline void storePart(float* p, Vector v, int n) {
#if defined(__AVX512F__)
    _mm512_mask_storeu_ps(p, static_cast<__mmask16>((1u << n) - 1), v);
#elif defined(__AVX2__) && defined(__FMA__)
    const __m256i numbers = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    _mm256_maskstore_ps(p, _mm256_cmpgt_epi32(_mm256_set1_epi32(n), numbers), v);
#else
    if (n == kLanes) return store(p, v);
    for (int i = 0; i < kLanes - 1; ++i)
        if (i < n) p[i] = v[i];
#endif
}

// x in every lane; x - 0 keeps the sign of -0, which x + 0 would not.
inline Vector broadcast(float x) {
#if defined(__AVX512F__)
    return _mm512_set1_ps(x);
#elif defined(__AVX2__) && defined(__FMA__)
    return _mm256_set1_ps(x);
#elif defined(__ARM_NEON)
    return vdupq_n_f32(x);
#else
    return x - Vector{};
#endif
}

// a * b + c, rounded once. Uses intrinsics, because compilers do not unroll loops that contain a loop over the lanes.
inline Vector fma(Vector a, Vector b, Vector c) {
#if defined(__AVX512F__)
    return _mm512_fmadd_ps(a, b, c);
#elif defined(__AVX2__) && defined(__FMA__)
    return _mm256_fmadd_ps(a, b, c);
#elif defined(__ARM_NEON)
    return vfmaq_f32(c, a, b);
#else
    Vector sum;
    for (int i = 0; i < kLanes; ++i) sum[i] = std::fma(a[i], b[i], c[i]);
    return sum;
#endif
}

// Rounded exactly, like the operators.
inline Vector squareRoot(Vector v) {
#if defined(__AVX512F__)
    return _mm512_sqrt_ps(v);
#elif defined(__AVX2__) && defined(__FMA__)
    return _mm256_sqrt_ps(v);
#elif defined(__aarch64__)
    return vsqrtq_f32(v);
#else
    Vector root;
    for (int i = 0; i < kLanes; ++i) root[i] = std::sqrt(v[i]);
    return root;
#endif
}

// All bits set in the first n lanes; n may be less than 0 or more than kLanes.
inline Mask firstLanes(int n) {
#if defined(__AVX512F__)
    const Mask numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
#elif defined(__AVX2__) && defined(__FMA__)
    const Mask numbers{0, 1, 2, 3, 4, 5, 6, 7};
#else
    const Mask numbers{0, 1, 2, 3};
#endif
    return numbers < n;
}

// mask ? a : b, lane by lane; mask is the result of a comparison.
inline Vector select(Mask mask, Vector a, Vector b) { return mask ? a : b; }

// a > b ? a : b, lane by lane: b where one is NaN, and of two zeros.
inline Vector largerOr(Vector a, Vector b) {
#if defined(__AVX512F__)
    return _mm512_max_ps(a, b);
#elif defined(__AVX2__) && defined(__FMA__)
    return _mm256_max_ps(a, b);
#else
    return select(a > b, a, b);
#endif
}

// a < b ? a : b, lane by lane: b where one is NaN, and of two zeros.
inline Vector smallerOr(Vector a, Vector b) {
#if defined(__AVX512F__)
    return _mm512_min_ps(a, b);
#elif defined(__AVX2__) && defined(__FMA__)
    return _mm256_min_ps(a, b);
#else
    return select(a < b, a, b);
#endif
}

// Of counts. Unsigned, because their sum may exceed an int.
inline int quotientUp(int a, int b) {
    return static_cast<int>((static_cast<unsigned>(a) + static_cast<unsigned>(b) - 1) / static_cast<unsigned>(b));
}

}  // namespace NOLK_FAST_LEVEL
