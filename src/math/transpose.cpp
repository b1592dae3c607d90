#include "math/transpose.h"

#include "math/unaligned.h"

namespace {

using Vec4 = float __attribute__((vector_size(16)));

Vec4 load(const float* p) {
    Vec4 v;
    loadVector(v, p);
    return v;
}

// A tile of four by four floats. For whole matrices it was measured to be faster than the eight by eight of
// transposeTile.
void transpose4x4(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride) {
    const Vec4 a = load(in), b = load(in + inStride), c = load(in + 2 * inStride), d = load(in + 3 * inStride);
    const Vec4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5), cd = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    storeVector(out, __builtin_shufflevector(ab, cd, 0, 1, 4, 5));
    storeVector(out + outStride, __builtin_shufflevector(ab, cd, 2, 3, 6, 7));
    const Vec4 ab2 = __builtin_shufflevector(a, b, 2, 6, 3, 7), cd2 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    storeVector(out + 2 * outStride, __builtin_shufflevector(ab2, cd2, 0, 1, 4, 5));
    storeVector(out + 3 * outStride, __builtin_shufflevector(ab2, cd2, 2, 3, 6, 7));
}

// Transposes kRows rows without tiles, for rows or columns that do not fill one.
template <int kRows>
void transposeRest(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int cols) {
    for (std::ptrdiff_t j = 0; j < cols; ++j)
        for (int i = 0; i < kRows; ++i) out[j * outStride + i] = in[i * inStride + j];
}

// Transposes kRows rows, in tiles as far as possible.
template <int kRows>
void transposeBand(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int cols) {
    int j = 0;
    for (; cols - j >= 4; j += 4)
        for (int i = 0; i < kRows; i += 4)
            transpose4x4(in + i * inStride + j, inStride, out + j * outStride + i, outStride);
    transposeRest<kRows>(in + j, inStride, out + j * outStride, outStride, cols - j);
}

}  // namespace

// Takes 16 rows at a time if it can, because then every write to a row of out fills a cache line.
void transposeMatrix(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int rows,
                     int cols) {
    for (; rows >= 16; rows -= 16, in += 16 * inStride, out += 16)
        transposeBand<16>(in, inStride, out, outStride, cols);
    for (; rows >= 4; rows -= 4, in += 4 * inStride, out += 4) transposeBand<4>(in, inStride, out, outStride, cols);
    if (rows == 3) transposeRest<3>(in, inStride, out, outStride, cols);
    if (rows == 2) transposeRest<2>(in, inStride, out, outStride, cols);
    if (rows == 1) transposeRest<1>(in, inStride, out, outStride, cols);
}
