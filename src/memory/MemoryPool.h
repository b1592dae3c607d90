// Hands out ranges of one growable block of floats, lowest offset first.
//   MemoryPool pool(16);  MemoryPoolMem a = pool.malloc(20);  // {0, 32}
//   float* start = pool.locate(a.offset);
// Planning only counts: what is taken is a list of intervals, and freed neighbours join by themselves. The block itself
// is allocated, as zeros, when the first address is asked for. Growing after that moves it: addresses hold only when
// nothing more will be taken. The block goes with the pool.
#pragma once

#include <vector>

#include "memory/AlignedMemory.h"

// A range of floats, from the pool's start.
struct MemoryPoolMem {
    int offset = 0;
    int size = 0;
};

class MemoryPool {
public:
    // alignment, in floats, is what sizes are rounded up to.
    explicit MemoryPool(int alignment) : storage_(alignment) {}

    // Reserves at least n floats, at the lowest offset that has room; grows the pool when none has. A size that,
    // rounded, is not positive gives an empty range. Throws std::bad_alloc when the pool would pass 2^31 - 1 floats.
    MemoryPoolMem malloc(int n);

    // Gives a range back. Ranges that were never handed out are not refused; what lies outside the pool is ignored.
    void free(MemoryPoolMem mem);

    // The address of a float. Allocates the block, or makes it as large as the pool has become, and then throws
    // std::bad_alloc when there is no memory.
    float* locate(int offset) { return storage_.growTo(capacity_) + offset; }

    // The same in a block that has been allocated.
    const float* locate(int offset) const { return storage_.data() + offset; }

    // Capacity in floats.
    int size() const { return capacity_; }

    // The lowest offset with n free floats behind it, or the start of the free tail, which then has to grow.
    int findOffsetToMalloc(int n) const;

    // Takes count floats from start for a value of 1, frees them for any other; nothing when count <= 0. The range must
    // lie in the pool.
    void setSpaceRangeValue(int start, int count, float value);

private:
    struct Interval {
        int begin, end;
    };

    int capacity_ = 0;
    std::vector<Interval> taken_;  // ascending, with free floats between any two
    AlignedMemory<float> storage_;
};
