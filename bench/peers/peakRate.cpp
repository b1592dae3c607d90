#include "peakRate.h"

#include <chrono>

namespace {

constexpr int kLanes = 16, kSteps = 20'000, kMostPixels = 14, kMostVectors = 2;

using Lanes = float __attribute__((vector_size(kLanes * sizeof(float))));
using Clock = std::chrono::steady_clock;

struct Operands {
    Lanes weights[kMostVectors];
    float pixels[kMostPixels][kLanes];  // one is used of each cache line
};

// Enough independent sums to hide the latency of the multiply-adds, and few enough to stay in registers. Returns a
// value that depends on all of them, so that the compiler keeps them.
template <int pixels, int vectors, bool loads>
[[gnu::always_inline]] inline float multiplyAdds(const Operands& operands) {
    Lanes sums[pixels * vectors], weights[vectors];
    Lanes factor = operands.pixels[0][0] - Lanes{};
#pragma GCC unroll 32
    for (int i = 0; i < pixels * vectors; ++i) sums[i] = factor * static_cast<float>(i);
#pragma GCC unroll 16
    for (int v = 0; v < vectors; ++v) weights[v] = operands.weights[v];
    for (int step = 0; step < kSteps; ++step) {
        if (!loads) {
#pragma GCC unroll 32
            for (int i = 0; i < pixels * vectors; ++i) sums[i] = sums[i] * factor + weights[i % vectors];
            continue;
        }
        asm volatile("" ::: "memory");  // as if each step had other operands, like a convolution's inner loop
#pragma GCC unroll 16
        for (int v = 0; v < vectors; ++v) weights[v] = operands.weights[v];
#pragma GCC unroll 16
        for (int p = 0; p < pixels; ++p) {
            factor = operands.pixels[p][0] - Lanes{};
#pragma GCC unroll 16
            for (int v = 0; v < vectors; ++v) sums[p * vectors + v] += factor * weights[v];
        }
    }
    Lanes total = sums[0];
#pragma GCC unroll 32
    for (int i = 1; i < pixels * vectors; ++i) total += sums[i];
    return total[0];
}

// Registers of 8 lanes or 4: 6 sums of 16 lanes take 12 of 16 with AVX2, 24 of AArch64's 32.
constexpr int kFewPixels = 6;

template <bool loads>
float narrow(const Operands& operands) {
    return multiplyAdds<kFewPixels, 1, loads>(operands);
}

#if defined(__x86_64__)
template <bool loads>
[[gnu::target("avx512f")]] float wide(const Operands& operands) {
    return multiplyAdds<kMostPixels, kMostVectors, loads>(operands);
}

const bool hasAvx512 = __builtin_cpu_supports("avx512f");
#else
template <bool loads>
float wide(const Operands& operands) {
    return narrow<loads>(operands);
}

constexpr bool hasAvx512 = false;
#endif

template <bool loads>
double rate(double seconds) {
    Operands operands{};
    for (auto& pixel : operands.pixels) pixel[0] = 0.5f;
    for (Lanes& weights : operands.weights) weights += 0.5f;
    asm volatile("" ::"r"(&operands) : "memory");  // as if they came from elsewhere
    const int sums = hasAvx512 ? kMostPixels * kMostVectors : kFewPixels;
    double done = 0, passed = 0;
    volatile float kept = 0;
    for (const Clock::time_point start = Clock::now(); passed < seconds;) {
        kept = hasAvx512 ? wide<loads>(operands) : narrow<loads>(operands);
        done += 2e-9 * kLanes * sums * kSteps;
        passed = std::chrono::duration<double>(Clock::now() - start).count();
    }
    static_cast<void>(kept);
    return done / passed;
}

}  // namespace

PeakRates peakRates(double seconds) { return {rate<false>(seconds / 2), rate<true>(seconds / 2)}; }
