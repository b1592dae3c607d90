#include <atomic>

#include "fast/kernels/FastKernels.h"

#ifdef __x86_64__
namespace fast_x86_64_v3 {
extern const FastKernels kernels;
}
namespace fast_x86_64_v4 {
extern const FastKernels kernels;
}
#else
namespace fast_baseline {
extern const FastKernels kernels;
}
#endif

namespace {

// Finds the instruction sets that this processor supports. A library that was built for older processors finds none on
// them. Of v4, every feature is tested.
std::vector<const FastKernels*> findSupported() {
#ifdef __x86_64__
    std::vector<const FastKernels*> found;
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma") || !__builtin_cpu_supports("bmi2"))
        return found;
    found.push_back(&fast_x86_64_v3::kernels);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512cd") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        found.push_back(&fast_x86_64_v4::kernels);
    return found;
#else
    return {&fast_baseline::kernels};
#endif
}

std::atomic<const FastKernels*> forcedKernels{nullptr};

}  // namespace

const std::vector<const FastKernels*>& supportedFastKernels() {
    static const std::vector<const FastKernels*> supported = findSupported();
    return supported;
}

const FastKernels& fastKernels() {
    const FastKernels* const forced = forcedKernels.load(std::memory_order_relaxed);
    return forced ? *forced : *supportedFastKernels().back();
}

void forceFastKernels(const FastKernels* kernels) { forcedKernels.store(kernels, std::memory_order_relaxed); }
