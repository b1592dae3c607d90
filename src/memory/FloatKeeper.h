// A builder that takes over the float arrays of a model file, so that its layers need no copies of them. A model reader
// asks each builder whether it is one:
//   if (FloatKeeper* keeper = optionalInterface<FloatKeeper>(builder)) weights = keeper->keep(std::move(array));
#pragma once

#include "memory/FloatBuffer.h"

class FloatKeeper {
public:
    // Returns the array's start. The caller may write to the array until it passes it to an operation. The array lives
    // at least until build.
    virtual float* keep(FloatBuffer array) = 0;

protected:
    ~FloatKeeper() = default;
};
