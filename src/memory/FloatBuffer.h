// Floats that begin as zeros. The system hands them over page by page, as they are written: a size from a model file
// costs nothing until values come with it.
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

// Never null, also for none. Throws std::bad_alloc.
inline FloatBuffer zeroedFloats(std::size_t count) {
    FloatBuffer buffer(static_cast<float*>(std::calloc(std::max<std::size_t>(count, 1), sizeof(float))));
    if (!buffer) throw std::bad_alloc();
    return buffer;
}
