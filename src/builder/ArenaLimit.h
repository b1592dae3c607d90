// A builder that refuses to build a network whose arena would be too large. How many gaps planning leaves between the
// tensors is known only when it is done.
//   if (ArenaLimit* arena = arenaLimitOf(builder)) arena->limitArena(floats);
// Caller and builder may come from libraries of different versions, so this class must not change under the same name.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <cstring>

class ArenaLimit {
public:
    // build throws std::length_error for an arena of more floats.
    virtual void limitArena(std::int64_t floats) = 0;

protected:
    ~ArenaLimit() = default;
};

// Null for builders without the interface. floatKeeperOf says why the table is looked at first.
inline ArenaLimit* arenaLimitOf(nolk::RunnerBuilder& builder) {
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(&builder), sizeof slots);
    return slots[-1] ? dynamic_cast<ArenaLimit*>(&builder) : nullptr;
}
