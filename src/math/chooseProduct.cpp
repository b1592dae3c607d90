#include "math/chooseProduct.h"

#include <atomic>

#include "math/x86Level.h"

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

// Finds the instruction sets that this processor supports.
std::vector<const Product*> findSupported() {
#ifdef __x86_64__
    std::vector<const Product*> found{&x86_64_v2::product};
    if (x86Level() >= 3) found.push_back(&x86_64_v3::product);
    if (x86Level() >= 4) found.push_back(&x86_64_v4::product);
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
