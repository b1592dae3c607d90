#include "math/transpose.h"

#include <algorithm>
#include <cstring>

namespace {

using Vec4 = float __attribute__((vector_size(16)));

Vec4 load(const float* p) {
    Vec4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

void store(float* p, Vec4 v) { std::memcpy(p, &v, sizeof v); }

void transpose4x4(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride) {
    const Vec4 a = load(in), b = load(in + inStride), c = load(in + 2 * inStride), d = load(in + 3 * inStride);
    const Vec4 ab = __builtin_shufflevector(a, b, 0, 4, 1, 5), cd = __builtin_shufflevector(c, d, 0, 4, 1, 5);
    store(out, __builtin_shufflevector(ab, cd, 0, 1, 4, 5));
    store(out + outStride, __builtin_shufflevector(ab, cd, 2, 3, 6, 7));
    const Vec4 ab2 = __builtin_shufflevector(a, b, 2, 6, 3, 7), cd2 = __builtin_shufflevector(c, d, 2, 6, 3, 7);
    store(out + 2 * outStride, __builtin_shufflevector(ab2, cd2, 0, 1, 4, 5));
    store(out + 3 * outStride, __builtin_shufflevector(ab2, cd2, 2, 3, 6, 7));
}

void transposeTile(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int rows, int cols) {
    for (int j = 0; j < cols; ++j)
        for (int i = 0; i < rows; ++i) out[j * outStride + i] = in[i * inStride + j];
}

// Bands of so many rows write a whole cache line each, and read from few enough rows to stay in the nearest cache.
constexpr int kBand = 16;

}  // namespace

void transposeMatrix(const float* in, std::ptrdiff_t inStride, float* out, std::ptrdiff_t outStride, int rows,
                     int cols) {
    for (int band = 0; band < rows; band += std::min(kBand, rows - band)) {
        const int bandEnd = band + std::min(kBand, rows - band);
        const int fullRows = band + (bandEnd - band) / 4 * 4;
        for (int j = 0; j < cols; j += std::min(4, cols - j)) {
            const int width = std::min(4, cols - j);
            int i = band;
            if (width == 4)
                for (; i < fullRows; i += 4)
                    transpose4x4(in + i * inStride + j, inStride, out + j * outStride + i, outStride);
            transposeTile(in + i * inStride + j, inStride, out + j * outStride + i, outStride, bandEnd - i, width);
        }
    }
}
