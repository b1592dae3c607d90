#include "math/copySparsely.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr std::size_t kLargeCount = std::size_t{1} << 23;
constexpr std::size_t kBlock = 1024;  // a page

bool isZero(const float* values, std::size_t bytes) {
    static constexpr float kZeros[kBlock] = {};
    return std::memcmp(values, kZeros, bytes) == 0;
}

}  // namespace

void copySparsely(const float* src, float* dst, std::size_t n) {
    const std::size_t block = n > kLargeCount ? kBlock : std::max<std::size_t>(n, 1);
    for (std::size_t i = 0; i < n; i += block) {
        const std::size_t bytes = std::min(block, n - i) * sizeof(float);
        if (n > kLargeCount && isZero(src + i, bytes) && isZero(dst + i, bytes)) continue;
        std::memcpy(dst + i, src + i, bytes);
    }
}
