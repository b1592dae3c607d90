#include "memory/MemoryPool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <vector>

namespace {

void expectRange(MemoryPoolMem mem, int offset, int size) {
    EXPECT_EQ(mem.offset, offset);
    EXPECT_EQ(mem.size, size);
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
    EXPECT_THROW(pool.malloc(INT32_MAX), std::bad_alloc);
}

// What a pool has to do, by definition: one mark for every float.
struct MarkedPool {
    int alignment;
    std::vector<float> marks;

    MemoryPoolMem malloc(int n) {
        const int size = (n + alignment - 1) / alignment * alignment;
        const int offset = find(size);
        if (offset + size > capacity()) marks.resize(static_cast<std::size_t>(offset + size));
        set(offset, size, 1.0f);
        return {offset, size};
    }
    void free(MemoryPoolMem mem) {
        const int begin = std::max(mem.offset, 0);
        set(begin, std::min(mem.offset + mem.size, capacity()) - begin, 0.0f);
    }
    int find(int n) const {
        int start = 0;
        for (int i = 0; i < capacity(); ++i) {
            if (marks[static_cast<std::size_t>(i)] == 1.0f)
                start = i + 1;
            else if (i - start + 1 >= n)
                return start;
        }
        return start;
    }
    void set(int start, int count, float value) {
        if (count > 0) std::fill_n(marks.begin() + start, count, value);
    }
    int capacity() const { return static_cast<int>(marks.size()); }
};

// Ranges given back are, by turns, whole ones (some for the second time), parts, and any others.
TEST(MemoryPool, AnySequenceGivesTheOffsetsOfMarkedFloats) {
    std::mt19937 random(20);
    const auto between = [&random](int low, int high) { return std::uniform_int_distribution<>(low, high)(random); };
    for (const int alignment : {16, 1, 7, 100}) {
        MemoryPool pool(alignment);
        MarkedPool marked{alignment, {}};
        std::vector<MemoryPoolMem> ranges{{0, 0}};
        for (int step = 0; step < 3000; ++step) {
            SCOPED_TRACE(testing::Message() << "alignment " << alignment << ", step " << step);
            MemoryPoolMem mem = ranges[static_cast<std::size_t>(between(0, static_cast<int>(ranges.size()) - 1))];
            switch (between(0, 6)) {
                case 0:
                    mem = {mem.offset + between(-20, 20), mem.size + between(-40, 40)};
                    [[fallthrough]];
                case 1:
                case 2:
                    pool.free(mem);
                    marked.free(mem);
                    break;
                case 3: {
                    const int start = between(0, marked.capacity()), count = between(-2, marked.capacity() - start);
                    const float value = between(0, 3) == 0 ? 1.0f : 0.5f;
                    pool.setSpaceRangeValue(start, std::min(count, 60), value);
                    marked.set(start, std::min(count, 60), value);
                    break;
                }
                default: {
                    const int n = step % 10 == 0 ? between(-200, 0) : between(1, 90);
                    ranges.push_back(pool.malloc(n));
                    const MemoryPoolMem expected = marked.malloc(n);
                    ASSERT_EQ(ranges.back().offset, expected.offset);
                    ASSERT_EQ(ranges.back().size, expected.size);
                }
            }
            const int n = between(-3, 200);
            ASSERT_EQ(pool.findOffsetToMalloc(n), marked.find(n));
            ASSERT_EQ(pool.size(), marked.capacity());
        }
    }
}

TEST(MemoryPool, TheBlockIsZeroAndKeepsItsContentsWhenThePoolGrows) {
    MemoryPool pool(16);
    pool.malloc(1000);
    std::fill_n(pool.locate(0), 1000, 2.0f);
    const MemoryPoolMem more = pool.malloc(100000);
    const float* const floats = pool.locate(0);
    ASSERT_GE(pool.size(), more.offset + 100000);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(floats) % 64, 0u);
    for (int i = 0; i < pool.size(); ++i) ASSERT_EQ(floats[i], i < 1000 ? 2.0f : 0.0f) << i;
    EXPECT_EQ(pool.locate(more.offset), floats + more.offset);
}

}  // namespace
