// A builder that refuses to build a network whose arena would be too large. How many gaps planning leaves between the
// tensors is known only when it is done.
//   if (ArenaLimit* arena = optionalInterface<ArenaLimit>(builder)) arena->limitArena(floats);
#pragma once

#include <cstdint>

class ArenaLimit {
public:
    // build throws std::length_error for an arena of more floats.
    virtual void limitArena(std::int64_t floats) = 0;

protected:
    ~ArenaLimit() = default;
};
