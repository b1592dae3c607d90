#include "support/Allocations.h"

#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> isCounting{false};
std::atomic<std::int64_t> bytes{0}, mostBytes{0}, blockCount{0};
std::atomic<int> left{0};  // allocations up to the failing one
std::atomic<bool> failed{false};

bool mayAllocate() {
    if (!isCounting || left.fetch_sub(1) != 1) return true;
    failed = true;
    return false;
}

void* counted(void* block) {
    if (!block || !isCounting) return block;
    ++blockCount;
    const std::int64_t now = bytes += static_cast<std::int64_t>(malloc_usable_size(block));
    for (std::int64_t most = mostBytes; now > most && !mostBytes.compare_exchange_weak(most, now);) {
    }
    return block;
}

}  // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
void __real_free(void* block);

void* __wrap_calloc(std::size_t count, std::size_t size) {
    return mayAllocate() ? counted(__real_calloc(count, size)) : nullptr;
}

void __wrap_free(void* block) {
    if (block && isCounting) {
        bytes -= static_cast<std::int64_t>(malloc_usable_size(block));
        --blockCount;
    }
    __real_free(block);
}
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return mayAllocate() ? counted(std::malloc(std::max<std::size_t>(size, 1))) : nullptr;
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept { return operator new(size, tag); }
void* operator new(std::size_t size) {
    void* const block = operator new(size, std::nothrow);
    if (!block) throw std::bad_alloc();
    return block;
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto step = static_cast<std::size_t>(alignment);
    void* const block = mayAllocate() ? counted(std::aligned_alloc(step, (size + step - 1) / step * step)) : nullptr;
    if (!block) throw std::bad_alloc();
    return block;
}
void* operator new[](std::size_t size, std::align_val_t alignment) { return operator new(size, alignment); }
void operator delete(void* block) noexcept { __wrap_free(block); }
void operator delete[](void* block) noexcept { __wrap_free(block); }
void operator delete(void* block, std::size_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, std::size_t) noexcept { __wrap_free(block); }
void operator delete(void* block, std::align_val_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { __wrap_free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { __wrap_free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { __wrap_free(block); }

Allocations::Allocations(int failing) {
    bytes = mostBytes = blockCount = 0;
    left = failing;
    failed = false;
    isCounting = true;
}

Allocations::~Allocations() { isCounting = false; }

std::int64_t Allocations::now() const { return bytes; }
std::int64_t Allocations::blocks() const { return blockCount; }
std::int64_t Allocations::most() const { return mostBytes; }
bool Allocations::hasFailed() const { return failed; }
