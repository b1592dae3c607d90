#include "memory/MemoryPool.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>
#include <new>

MemoryPoolMem MemoryPool::malloc(int n) {
    const int alignment = storage_.alignment();
    const std::int64_t units = (static_cast<std::int64_t>(n) + alignment - 1) / alignment;
    const std::int64_t rounded = units * alignment;
    if (rounded > INT_MAX) throw std::bad_alloc();

    const int size = static_cast<int>(rounded);
    const int offset = findOffsetToMalloc(size);
    if (size <= 0) return {offset, size};
    if (size > INT_MAX - offset) throw std::bad_alloc();
    capacity_ = std::max(capacity_, offset + size);
    setSpaceRangeValue(offset, size, 1.0f);
    return {offset, size};
}

void MemoryPool::free(MemoryPoolMem mem) {
    const std::int64_t end = std::min<std::int64_t>(static_cast<std::int64_t>(mem.offset) + mem.size, size());
    const int begin = std::max(mem.offset, 0);
    setSpaceRangeValue(begin, static_cast<int>(std::max<std::int64_t>(end - begin, 0)), 0.0f);
}

// A free float is found even if n is 0.
int MemoryPool::findOffsetToMalloc(int n) const {
    const int wanted = std::max(n, 1);
    int start = 0;
    for (const Interval& interval : taken_) {
        if (interval.begin - start >= wanted) return start;
        start = interval.end;
    }
    return start;
}

void MemoryPool::setSpaceRangeValue(int start, int count, float value) {
    if (count <= 0) return;
    const int end = start + count;
    // All intervals that overlap or touch the range are replaced by the result: one merged interval, or what is left.
    const auto first = std::lower_bound(taken_.begin(), taken_.end(), start,
                                        [](const Interval& interval, int position) { return interval.end < position; });
    const auto last = std::upper_bound(
        first, taken_.end(), end, [](int position, const Interval& interval) { return position < interval.begin; });
    const int lowest = first == last ? start : std::min(start, first->begin);
    const int highest = first == last ? end : std::max(end, std::prev(last)->end);

    Interval replacement[2];
    int pieces = 0;
    if (value == 1.0f) {
        replacement[pieces++] = {lowest, highest};
    } else {
        if (lowest < start) replacement[pieces++] = {lowest, start};
        if (highest > end) replacement[pieces++] = {end, highest};
    }
    const auto inPlace = std::min<std::ptrdiff_t>(pieces, last - first);
    const auto next = taken_.erase(std::copy_n(replacement, inPlace, first), last);
    taken_.insert(next, replacement + inPlace, replacement + pieces);
}
