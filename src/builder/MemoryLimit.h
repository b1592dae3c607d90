// A builder that knows what its runner will take, and refuses to build one that would take too much.
//   if (MemoryLimit* memory = optionalInterface<MemoryLimit>(builder)) memory->limitMemory(bytes);
#pragma once

#include <cstdint>

class MemoryLimit {
public:
    // build throws std::length_error for a network whose arenas, weights, vectors and constants take more bytes.
    virtual void limitMemory(std::int64_t bytes) = 0;

protected:
    ~MemoryLimit() = default;
};
