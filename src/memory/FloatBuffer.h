// An array of floats that are zero at first. The system provides each page when it is first written, so a large count
// in a model file takes no memory unless the file has values for it.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>

struct FreeFloats {
    void operator()(float* floats) const { std::free(floats); }
};
using FloatBuffer = std::unique_ptr<float[], FreeFloats>;

// Never null, even if count is 0. Throws std::bad_alloc.
inline FloatBuffer zeroedFloats(std::size_t count) {
    FloatBuffer buffer(static_cast<float*>(std::calloc(std::max<std::size_t>(count, 1), sizeof(float))));
    if (!buffer) throw std::bad_alloc();
    return buffer;
}
