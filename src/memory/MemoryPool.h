// Hands out ranges of one growable block of floats, lowest offset first.
//   MemoryPool pool(16);  MemoryPoolMem a = pool.malloc(20);  // {0, 32}
//   float* start = pool.locate(a.offset);
// Planning allocates no memory: it only keeps a list of the intervals that are taken. The block itself is allocated, as
// zeros, at the first call of locate. If it grows after that, it moves, so use addresses only when no more ranges will
// be reserved. The pool owns the block.
#pragma once

#include <algorithm>
#include <vector>

#include "memory/AlignedMemory.h"
#include "memory/FloatBuffer.h"

// A range of floats, from the pool's start.
struct MemoryPoolMem {
    int offset = 0;
    int size = 0;
};

class MemoryPool {
public:
    // Sizes are rounded up to a multiple of alignment, which counts floats.
    explicit MemoryPool(int alignment) : storage_(alignment) {}

    // Reserves at least n floats at the lowest offset that has room; grows the pool if there is none. The range is
    // empty if the rounded size is not positive. Throws std::bad_alloc if the pool would exceed 2^31 - 1 floats.
    MemoryPoolMem malloc(int n);

    // Frees a range. It need not be one that malloc returned; parts outside the pool are ignored.
    void free(MemoryPoolMem mem);

    // The address of a float. Allocates the block, or enlarges it to the size of the pool; throws std::bad_alloc if
    // there is no memory.
    float* locate(int offset) { return storage_.growTo(capacity_) + offset; }

    // The same if the block has been allocated already.
    const float* locate(int offset) const { return storage_.data() + offset; }

    // Capacity in floats.
    int size() const { return capacity_; }

    // The lowest offset that has n free floats. If there is none, the start of the free floats at the end of the pool,
    // which then has to grow.
    int findOffsetToMalloc(int n) const;

    // Marks count floats from start as taken if value is 1, and as free if it is anything else. Does nothing if
    // count <= 0. The range must lie in the pool.
    void setSpaceRangeValue(int start, int count, float value);

#ifdef NOLK_SEPARATE_TENSORS
    // A block of n floats outside the pool's range, owned by the pool. Fuzzers with sanitizers are built like this:
    // they notice accesses beyond a block, but not those from one tensor into another. Blocks hold firstValue before a
    // run writes to them; no result may depend on it.
    float* ownBlock(int n) {
        const auto count = static_cast<std::size_t>(n > 0 ? n : 0);
        blocks_.push_back(zeroedFloats(count));
        if (firstValue != 0.0f) std::fill_n(blocks_.back().get(), count, firstValue);
        return blocks_.back().get();
    }
    static inline float firstValue = 0.0f;
#endif

private:
    struct Interval {
        int begin, end;
    };

    int capacity_ = 0;
    std::vector<Interval> taken_;  // ascending, with free floats between any two
    AlignedMemory<float> storage_;
#ifdef NOLK_SEPARATE_TENSORS
    std::vector<FloatBuffer> blocks_;
#endif
};
