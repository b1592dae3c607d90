// Weights in the order in which the kernels read them. Equal arrays of all runners in the process share one copy.
//   FastPacked packed = shareFloats(std::move(floats));
// Thread-safe.
#pragma once

#include <cmath>
#include <memory>

#include "memory/AlignedMemory.h"

struct FastPackedFloats {
    AlignedMemory<float> memory;
    std::size_t count = 0;

    explicit FastPackedFloats(std::size_t n);
    float* data() { return memory.data(); }
    const float* data() const { return memory.data(); }
};

using FastPacked = std::shared_ptr<const FastPackedFloats>;

// Stores a weight in memory that is still zero. Zeros are not stored, so that weights which a file announces but does
// not contain take no memory.
inline void storeNonZero(float value, float& place) {
    if (value != 0.0f || std::signbit(value)) place = value;
}

// The same floats: either those that a runner has already, or these.
FastPacked shareFloats(std::unique_ptr<FastPackedFloats> floats);
