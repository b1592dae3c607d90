#include "math/chooseProduct.h"

#include <atomic>

#ifdef __x86_64__
namespace x86_64_v2 {
extern const Product product;
}
namespace x86_64_v3 {
extern const Product product;
}
namespace x86_64_v4 {
extern const Product product;
}
#else
namespace baseline {
extern const Product product;
}
#endif

namespace {

// Finds the instruction sets that this processor supports. Only the newest features of each level are tested, because
// every processor that has them has the rest too.
std::vector<const Product*> findSupported() {
#ifdef __x86_64__
    std::vector<const Product*> found{&x86_64_v2::product};
    if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma") || !__builtin_cpu_supports("bmi2"))
        return found;
    found.push_back(&x86_64_v3::product);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512cd") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        found.push_back(&x86_64_v4::product);
    return found;
#else
    return {&baseline::product};
#endif
}

std::atomic<const Product*> forcedProduct{nullptr};

}  // namespace

const std::vector<const Product*>& supportedProducts() {
    static const std::vector<const Product*> supported = findSupported();
    return supported;
}

const Product& product() {
    const Product* const forced = forcedProduct.load(std::memory_order_relaxed);
    return forced ? *forced : *supportedProducts().back();
}

void forceProduct(const Product* product) { forcedProduct.store(product, std::memory_order_relaxed); }
