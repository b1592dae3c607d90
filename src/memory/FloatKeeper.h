// A builder that takes over the float arrays of a model file, so that its layers need no copies of them. A model reader
// asks each builder whether it is one:
//   if (FloatKeeper* keeper = floatKeeperOf(builder)) weights = keeper->keep(std::move(array));
// Libraries of several versions may meet here: a change of this class needs a new name.
#pragma once

#include <nolk.h>

#include <cstring>

#include "memory/FloatBuffer.h"

class FloatKeeper {
public:
    // Returns the array's start. It may be written until an operation has received it, and lives until build at least.
    virtual float* keep(FloatBuffer array) = 0;

protected:
    ~FloatKeeper() = default;
};

// Null for builders that are none, such as those of other libraries. Of these some are compiled without run-time type
// information, and have a null pointer where their class should be named, in front of the slots; dynamic_cast would
// follow it.
inline FloatKeeper* floatKeeperOf(nolk::RunnerBuilder& builder) {
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(&builder), sizeof slots);
    return slots[-1] ? dynamic_cast<FloatKeeper*>(&builder) : nullptr;
}
