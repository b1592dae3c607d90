#include "math/mixNeighbours.h"

#include <cstddef>
#include <cstring>

namespace {

using Vec4 = float __attribute__((vector_size(16)));
// Two neighbouring floats as one move; never taken for a number.
using Pair = double __attribute__((may_alias, aligned(alignof(float))));
using TwoPairs = double __attribute__((vector_size(16)));

Vec4 load(const float* p) {
    Vec4 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

Vec4 loadPairs(const float* p, const float* q) {
    const TwoPairs pairs = {*reinterpret_cast<const Pair*>(p), *reinterpret_cast<const Pair*>(q)};
    Vec4 v;
    std::memcpy(&v, &pairs, sizeof v);
    return v;
}

}  // namespace

void mixNeighbours(int n, float* out, const float* in, const int* at, const float* weights) {
    std::ptrdiff_t i = 0;
    for (; i + 4 <= n; i += 4) {
        const Vec4 a = load(weights + 2 * i) * loadPairs(in + at[i], in + at[i + 1]);
        const Vec4 b = load(weights + 2 * i + 4) * loadPairs(in + at[i + 2], in + at[i + 3]);
        const Vec4 mixed = __builtin_shufflevector(a, b, 0, 2, 4, 6) + __builtin_shufflevector(a, b, 1, 3, 5, 7);
        std::memcpy(out + i, &mixed, sizeof mixed);
    }
    for (; i < n; ++i) out[i] = weights[2 * i] * in[at[i]] + weights[2 * i + 1] * in[at[i] + 1];
}
