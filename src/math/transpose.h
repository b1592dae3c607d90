// Transposes a matrix of floats.
#pragma once

#include <cstddef>

// out[j * outStride + i] = in[i * inStride + j] for i below rows and j below cols. The two must not overlap.
void transposeMatrix(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int rows,
                     int cols);
