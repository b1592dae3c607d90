#include <atomic>

#include "fast/kernels/FastKernels.h"
#include "math/x86Level.h"

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
// them.
std::vector<const FastKernels*> findSupported() {
#ifdef __x86_64__
    std::vector<const FastKernels*> found;
    if (x86Level() >= 3) found.push_back(&fast_x86_64_v3::kernels);
    if (x86Level() >= 4) found.push_back(&fast_x86_64_v4::kernels);
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
