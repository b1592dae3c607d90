// The weights that a layer keeps.
#pragma once

#include "math/copySparsely.h"
#include "memory/FloatArrays.h"

// Returns the array at source itself if `given` has it, else a copy of its n floats. given may be null. Returns null
// for a null source or n <= 0.
inline FloatBuffer ownedFloats(const float* source, int n, FloatArrays* given) {
    if (!source || n <= 0) return nullptr;
    FloatBuffer own = given ? given->take(source) : nullptr;
    if (own) return own;
    own = zeroedFloats(static_cast<std::size_t>(n));
    copySparsely(source, own.get(), static_cast<std::size_t>(n));
    return own;
}
