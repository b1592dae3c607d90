// A builder that takes over the float arrays of a model file, so that its layers need no copies of them. A model reader
// asks each builder whether it is one:
//   if (FloatKeeper* keeper = floatKeeperOf(builder)) weights = keeper->keep(std::move(array));
// Reader and builder may come from libraries of different versions, so this class must not change under the same name.
#pragma once

#include <nolk.h>

#include <cstring>

#include "memory/FloatBuffer.h"

class FloatKeeper {
public:
    // Returns the array's start. The caller may write to the array until it passes it to an operation. The array lives
    // at least until build.
    virtual float* keep(FloatBuffer array) = 0;

protected:
    ~FloatKeeper() = default;
};

// Null for builders that are not FloatKeepers, such as those of other libraries. Some of these are compiled without
// run-time type information: the pointer to it, which stands before the virtual functions, is null, and dynamic_cast
// would follow it.
inline FloatKeeper* floatKeeperOf(nolk::RunnerBuilder& builder) {
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(&builder), sizeof slots);
    return slots[-1] ? dynamic_cast<FloatKeeper*>(&builder) : nullptr;
}
