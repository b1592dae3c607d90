// Counts what the program allocates with new and what the library allocates with calloc, and lets single allocations
// fail. Works in programs that link support/Allocations.cpp with the linker's options --wrap=calloc and --wrap=free.
//   Allocations all;  load();  all.most();            // bytes at a time
//   Allocations third(3);  EXPECT_THROW(load(), std::bad_alloc);
// Only one object at a time. All threads are counted.
#pragma once

#include <cstdint>

class Allocations {
public:
    // Lets the allocation of that number fail, counted from 1; none if 0.
    explicit Allocations(int failing = 0);
    ~Allocations();
    Allocations(const Allocations&) = delete;
    Allocations& operator=(const Allocations&) = delete;

    // Bytes that are allocated now and were not when this object was made; the most of them so far. A block may have a
    // few bytes more than were asked for.
    std::int64_t now() const;
    std::int64_t most() const;

    // Blocks that are allocated now and were not when this object was made.
    std::int64_t blocks() const;

    // Whether the allocation that should fail has been reached.
    bool hasFailed() const;
};
