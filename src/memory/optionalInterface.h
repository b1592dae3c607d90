// Interfaces that a builder may have beside RunnerBuilder.
//   if (ArenaLimit* arena = optionalInterface<ArenaLimit>(builder)) arena->limitArena(floats);
// Caller and builder may come from libraries of different versions, so such a class must not change under its name.
#pragma once

#include <nolk.h>

#include <cstring>

// Null for builders without the interface, such as those of other libraries. Some of these are compiled without
// run-time type information: the pointer to it, which stands before the virtual functions, is null, and dynamic_cast
// would follow it.
template <typename Interface>
Interface* optionalInterface(nolk::RunnerBuilder& builder) {
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(&builder), sizeof slots);
    return slots[-1] ? dynamic_cast<Interface*>(&builder) : nullptr;
}
