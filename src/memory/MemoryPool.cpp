#include "memory/MemoryPool.h"

#include <algorithm>
#include <climits>
#include <cstdint>

MemoryPoolMem MemoryPool::malloc(int n) {
    const int alignment = storage_.alignment();
    const std::int64_t units = (static_cast<std::int64_t>(n) + alignment - 1) / alignment;
    const std::int64_t rounded = units * alignment;
    if (rounded > INT_MAX) throw std::bad_alloc();

    const int size = static_cast<int>(rounded);
    const int offset = findOffsetToMalloc(size);
    if (size <= 0) return {offset, size};
    if (size > INT_MAX - offset) throw std::bad_alloc();
    storage_.growTo(offset + size);
    setSpaceRangeValue(offset, size, 1.0f);
    return {offset, size};
}

void MemoryPool::free(MemoryPoolMem mem) {
    const std::int64_t end = std::min<std::int64_t>(static_cast<std::int64_t>(mem.offset) + mem.size, size());
    const int begin = std::max(mem.offset, 0);
    setSpaceRangeValue(begin, static_cast<int>(std::max<std::int64_t>(end - begin, 0)), 0.0f);
}

int MemoryPool::findOffsetToMalloc(int n) const {
    const float* marks = storage_.data();
    int start = 0;
    for (int i = 0; i < size(); ++i) {
        if (marks[i] == 1.0f)
            start = i + 1;
        else if (i - start + 1 >= n)
            return start;
    }
    return start;
}

void MemoryPool::setSpaceRangeValue(int start, int count, float value) {
    if (count > 0) std::fill_n(storage_.data() + start, count, value);
}
