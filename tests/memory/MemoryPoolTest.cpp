#include "memory/MemoryPool.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace {

void expectRange(MemoryPoolMem mem, int offset, int size) {
    EXPECT_EQ(mem.offset, offset);
    EXPECT_EQ(mem.size, size);
}

TEST(MemoryPool, NothingIsReservedForNothing) {
    MemoryPool pool(16);
    expectRange(pool.malloc(0), 0, 0);
    EXPECT_EQ(pool.size(), 0);
}

TEST(MemoryPool, FreedHoleIsReusedBeforeThePoolGrows) {
    MemoryPool pool(16);
    const MemoryPoolMem first = pool.malloc(1);
    expectRange(first, 0, 16);
    expectRange(pool.malloc(20), 16, 32);
    EXPECT_EQ(pool.size(), 48);

    pool.free(first);
    expectRange(pool.malloc(10), 0, 16);
    pool.free(first);
    expectRange(pool.malloc(17), 48, 32);
    EXPECT_EQ(pool.size(), 80);
}

TEST(MemoryPool, FreeTailIsExtendedNotSkipped) {
    MemoryPool pool(16);
    pool.malloc(32);
    pool.free(pool.malloc(16));
    expectRange(pool.malloc(32), 32, 32);
    EXPECT_EQ(pool.size(), 64);
}

TEST(MemoryPool, NeighbouringHolesAreOneHole) {
    MemoryPool pool(16);
    const MemoryPoolMem a = pool.malloc(16), b = pool.malloc(16);
    pool.malloc(16);
    pool.free(b);
    pool.free(a);
    expectRange(pool.malloc(32), 0, 32);
}

TEST(MemoryPool, SenselessRangesAreHarmless) {
    MemoryPool pool(16);
    pool.malloc(32);
    pool.free({-8, 4});
    pool.free({24, 1000});
    pool.free({0, -1});
    expectRange(pool.malloc(8), 24, 16);  // the valid half of the second range was freed
    EXPECT_THROW(pool.malloc(INT32_MAX), std::bad_alloc);
}

TEST(AlignedMemory, GrowthKeepsContentsZeroesTheRestAndAligns) {
    AlignedMemory<float> memory(16);
    memory.growTo(3);
    for (int i = 0; i < 3; ++i) memory.data()[i] = 1.0f + static_cast<float>(i);
    memory.growTo(2);
    EXPECT_EQ(memory.size(), 3);
    memory.growTo(1000);
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(memory.data()[i], i < 3 ? 1.0f + static_cast<float>(i) : 0.0f);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory.data()) % 64, 0u);
}

}  // namespace
