// Copies floats of which most may be zeros that nobody has written: a model file may announce gigabytes that it does
// not hold.
#pragma once

#include <cstddef>

// dst[i] = src[i] for i below n. In arrays of more than 32 megabytes, blocks that are zero on both sides are not
// written: the pages of so large an allocation are fresh, and take no memory as long as they are only read. The two
// must not overlap.
void copySparsely(const float* src, float* dst, std::size_t n);
