// Copies float arrays without using memory for large zero parts, because a model file may announce gigabytes of weights
// that it does not contain.
#pragma once

#include <cstddef>

// dst[i] = src[i] for i below n. In arrays of more than 32 MiB, a block that is zero in both arrays is not written: the
// pages of such a large allocation come fresh from the system, and take no memory until they are written. The two
// arrays must not overlap.
void copySparsely(const float* src, float* dst, std::size_t n);
