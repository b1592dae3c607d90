// A layer's own copy of weights.
#pragma once

#include <memory>

#include "math/blas.h"

// A copy of n floats; null for a null source or n <= 0.
inline std::unique_ptr<float[]> ownedFloats(const float* source, int n) {
    float* copy = nullptr;
    copyFloats(source, copy, n);
    return std::unique_ptr<float[]>(copy);
}
