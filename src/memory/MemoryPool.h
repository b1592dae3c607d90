// Hands out ranges of one growable block of floats, lowest offset first.
//   MemoryPool pool(16);  MemoryPoolMem a = pool.malloc(20);  // {0, 32}
// While planning, the block's own floats mark what is taken (1 taken, 0 free), so freed neighbours need no merging;
// afterwards they are the tensors' storage, and the marks in them are garbage. Growing moves the block: addresses hold
// only when nothing more will be taken. The block goes with the pool.
#pragma once

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

    float* locate(int offset) const { return storage_.data() + offset; }

    // Capacity in floats.
    int size() const { return storage_.size(); }

    // The lowest offset with n free floats behind it, or the start of the free tail, which then has to grow.
    int findOffsetToMalloc(int n) const;

    // Stores value into count floats from start; nothing when count <= 0. The range must lie in the pool.
    void setSpaceRangeValue(int start, int count, float value);

private:
    AlignedMemory<float> storage_;
};
