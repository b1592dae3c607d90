#include "fast/hugePages.h"

#include <sys/mman.h>

#include <algorithm>
#include <climits>

namespace {

constexpr std::size_t kPageFloats = 512 * 1024;  // of a huge page on x86-64, and on AArch64 with small pages of 4 KB

}  // namespace

AlignedMemory<float> zerosInHugePages(std::size_t n) {
    if (n > INT_MAX) throw std::bad_alloc();
    const bool isLarge = n >= kPageFloats;
    AlignedMemory<float> memory(isLarge ? static_cast<int>(kPageFloats) : 16);
    memory.growTo(static_cast<int>(std::max<std::size_t>(n, 1)));
    // A hint: without huge pages all works the same, only slower. The last, incomplete one stays in small pages.
    if (isLarge) madvise(memory.data(), n / kPageFloats * kPageFloats * sizeof(float), MADV_HUGEPAGE);
    return memory;
}
