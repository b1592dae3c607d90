#include "math/interpolate.h"

#include <cstddef>
#include <cstring>

#include "math/unaligned.h"

namespace {

using Vec4 = float __attribute__((vector_size(16)));

// Loads each pair of neighbouring floats as one 64-bit double. Nothing is computed with the double.
Vec4 loadPairs(const float* p, const float* q) {
    double pairs[2];
    std::memcpy(&pairs[0], p, sizeof pairs[0]);
    std::memcpy(&pairs[1], q, sizeof pairs[1]);
    Vec4 v;
    std::memcpy(&v, pairs, sizeof v);
    return v;
}

}  // namespace

void interpolate(int n, float* out, const float* in, const int* at, const float* weights) {
    std::ptrdiff_t i = 0;
    for (; i + 4 <= n; i += 4) {
        Vec4 a, b;
        loadVector(a, weights + 2 * i);
        loadVector(b, weights + 2 * i + 4);
        a *= loadPairs(in + at[i], in + at[i + 1]);
        b *= loadPairs(in + at[i + 2], in + at[i + 3]);
        const Vec4 sums = __builtin_shufflevector(a, b, 0, 2, 4, 6) + __builtin_shufflevector(a, b, 1, 3, 5, 7);
        storeVector(out + i, sums);
    }
    for (; i < n; ++i) out[i] = weights[2 * i] * in[at[i]] + weights[2 * i + 1] * in[at[i] + 1];
}
