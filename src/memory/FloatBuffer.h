// Floats that begin as zeros. The system hands them over page by page, as they are written: a size from a model file
// costs nothing until values come with it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
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

// Gives the memory of count floats back to the system, in whole pages, while their array stays as it is. What these
// floats then hold is either what they held before or zeros.
inline void discard(float* floats, std::size_t count) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = (reinterpret_cast<std::uintptr_t>(floats) + page - 1) / page * page;
    const auto end = reinterpret_cast<std::uintptr_t>(floats + count) / page * page;
    if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
}
