#include "peakRate.h"

#include <chrono>

namespace {

constexpr int kLanes = 16, kSteps = 20'000;

using Lanes = float __attribute__((vector_size(kLanes * sizeof(float))));

// So many independent sums that they hide the latency of the multiply-adds, and so few that they stay in registers.
// Returns a value that depends on all of them, so that the compiler keeps them.
template <int count>
[[gnu::always_inline]] inline float multiplyAdds(float start) {
    Lanes factor, sums[count];
    for (int i = 0; i < kLanes; ++i) factor[i] = 0.5f;
#pragma GCC unroll 16
    for (int i = 0; i < count; ++i) sums[i] = factor * (start + static_cast<float>(i));
    for (int step = 0; step < kSteps; ++step) {
#pragma GCC unroll 16
        for (int i = 0; i < count; ++i) sums[i] = sums[i] * factor + factor;
    }
    Lanes total = sums[0];
#pragma GCC unroll 16
    for (int i = 1; i < count; ++i) total += sums[i];
    return total[0];
}

// Registers of 8 lanes or 4, at least 16 of them: 6 sums take 12 with AVX2, 24 of AArch64's 32.
float sixSums(float start) { return multiplyAdds<6>(start); }

#if defined(__x86_64__)
[[gnu::target("avx512f")]] float twelveSums(float start) { return multiplyAdds<12>(start); }

const bool hasAvx512 = __builtin_cpu_supports("avx512f");
#else
float twelveSums(float start) { return sixSums(start); }

constexpr bool hasAvx512 = false;
#endif

}  // namespace

double peakRate(double seconds) {
    using Clock = std::chrono::steady_clock;
    const int sums = hasAvx512 ? 12 : 6;
    double done = 0, passed = 0;
    volatile float kept = 1;
    for (const Clock::time_point start = Clock::now(); passed < seconds;) {
        kept = hasAvx512 ? twelveSums(kept) : sixSums(kept);
        done += 2e-9 * kLanes * sums * kSteps;
        passed = std::chrono::duration<double>(Clock::now() - start).count();
    }
    return done / passed;
}
