// exp, sigmoid and tanh of every lane, in a fixed order of exactly rounded operations: the same bits everywhere.
// docs/arithmetic.md has the formulas, the constants and the errors.
#pragma once

#include "fast/kernels/vectors.h"

namespace NOLK_FAST_LEVEL {

// e^x = 2^n * (1 + growth), with n the integer next to x / ln 2.
struct Exponential {
    Vector n;       // as 1.5 * 2^23 + n, so that the lowest bits of the float are those of n
    Vector growth;  // e^r - 1 for r = x - n * ln 2, with a small relative error also next to 0
};

constexpr float kRoundingShift = 0x1.8p23f;
constexpr std::int32_t kRoundingShiftBits = 0x4b400000;

// A polynomial in r whose first two coefficients are 0 and 1; the others have the least relative error for e^r.
inline Exponential reduceExp(Vector x) {
    const Vector n = fma(x, broadcast(0x1.715476p+0f), broadcast(kRoundingShift));
    const Vector whole = n - broadcast(kRoundingShift);
    Vector r = fma(whole, broadcast(-0x1.62e43p-1f), x);
    r = fma(whole, broadcast(0x1.05c61p-29f), r);
    Vector p = fma(broadcast(0x1.6a4d6p-10f), r, broadcast(0x1.12398ep-7f));
    p = fma(p, r, broadcast(0x1.5558bp-5f));
    p = fma(p, r, broadcast(0x1.555492p-3f));
    p = fma(p, r, broadcast(0x1.fffffcp-2f));
    return {n, fma(p, r * r, r)};
}

// x limited to [low, high]; NaN stays.
inline Vector limited(Vector x, float low, float high) {
    return smallerOr(broadcast(high), largerOr(broadcast(low), x));
}

// 2^n for -126 <= n <= 127.
inline Vector powerOfTwo(Mask n) { return (Vector)((n + 127) << 23); }

// Beyond the limits the result is 0 or infinity anyway. 2^n is applied as two factors, because 2^128 and 2^-150 are no
// floats; only the second product rounds, and only if the result is subnormal.
inline Vector exp(Vector x) {
    const Exponential e = reduceExp(limited(x, -104.0f, 89.0f));
    const Vector p = e.growth + broadcast(1.0f);
#if defined(__AVX512F__)
    return _mm512_scalef_ps(p, e.n - broadcast(kRoundingShift));
#else
    const Mask n = (Mask)e.n - kRoundingShiftBits;
    const Mask half = n >> 1;
    return p * powerOfTwo(half) * powerOfTwo(n - half);
#endif
}

inline Vector sigmoid(Vector x) { return broadcast(1.0f) / (exp(-x) + broadcast(1.0f)); }

// |x| with the sign of `sign`.
inline Vector withSignOf(Vector x, Vector sign) {
    constexpr auto kSign = static_cast<std::int32_t>(0x80000000u);
    return (Vector)(((Mask)x & ~kSign) | ((Mask)sign & kSign));
}

// g / (g + 2) for g = e^(2 |x|) - 1, which loses no digits next to 0. Beyond the limit the result is 1 anyway.
inline Vector tanh(Vector x) {
    const Vector size = smallerOr(broadcast(10.0f), withSignOf(x, broadcast(0.0f)));
    const Exponential e = reduceExp(size + size);
    const Vector scale = powerOfTwo((Mask)e.n - kRoundingShiftBits);
    const Vector g = fma(scale, e.growth, scale - broadcast(1.0f));
    return withSignOf(g / (g + broadcast(2.0f)), x);
}

}  // namespace NOLK_FAST_LEVEL
