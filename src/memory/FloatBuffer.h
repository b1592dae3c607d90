// An array of floats that are zero at first. The system provides each page when it is first written, so a large count
// in a model file takes no memory unless the file has values for it.
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

// Never null, even if count is 0. Throws std::bad_alloc.
inline FloatBuffer zeroedFloats(std::size_t count) {
    FloatBuffer buffer(static_cast<float*>(std::calloc(std::max<std::size_t>(count, 1), sizeof(float))));
    if (!buffer) throw std::bad_alloc();
    return buffer;
}

// Returns the memory of count floats to the system, in whole pages. The array stays allocated. Afterwards each of these
// floats has either its old value or zero.
inline void discard(float* floats, std::size_t count) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = (reinterpret_cast<std::uintptr_t>(floats) + page - 1) / page * page;
    const auto end = reinterpret_cast<std::uintptr_t>(floats + count) / page * page;
    if (begin < end) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
}
