#include "layers/RawMatmulLayer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "builder/shapes.h"
#include "math/lanes.h"

namespace {

// Computes a block of the output, kVectors registers wide, which stays in registers during the loop over k. a has k
// columns, b and out have w.
template <int kRows, int kVectors>
void multiplyBlock(const float* a, const float* b, float* out, std::ptrdiff_t k, std::ptrdiff_t w) {
    Lanes sums[kRows][kVectors] = {};
    for (std::ptrdiff_t i = 0; i < k; ++i, b += w)
        for (int r = 0; r < kRows; ++r)
            for (int v = 0; v < kVectors; ++v)
                sums[r][v] = fma(broadcast(a[r * k + i]), loadLanes(b + v * kLanes), sums[r][v]);
    for (int r = 0; r < kRows; ++r)
        for (int v = 0; v < kVectors; ++v) storeLanes(out + r * w + v * kLanes, sums[r][v]);
}

template <int kRows>
void multiplyColumn(const float* a, const float* b, float* out, std::ptrdiff_t k, std::ptrdiff_t w) {
    float sums[kRows] = {};
    for (std::ptrdiff_t i = 0; i < k; ++i, b += w)
        for (int r = 0; r < kRows; ++r) sums[r] = std::fma(a[r * k + i], *b, sums[r]);
    for (int r = 0; r < kRows; ++r) out[r * w] = sums[r];
}

// Computes kRows rows of the output, wide blocks first.
template <int kRows>
void multiplyRows(const float* a, const float* b, float* out, int k, int w) {
    int j = 0;
    for (; w - j >= 2 * kLanes; j += 2 * kLanes) multiplyBlock<kRows, 2>(a, b + j, out + j, k, w);
    for (; w - j >= kLanes; j += kLanes) multiplyBlock<kRows, 1>(a, b + j, out + j, k, w);
    for (; j < w; ++j) multiplyColumn<kRows>(a, b + j, out + j, k, w);
}

}  // namespace

RawMatmulLayer::RawMatmulLayer(nolk::Tensor a, nolk::Tensor b, nolk::Tensor output) : a_(a), b_(b), output_(output) {
    desc = "matmul";
}

void RawMatmulLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& o = output_.shape;
    if (elementCount(o) == 0) return;
    // An empty first input may have other extents that are too large to compute offsets with.
    if (elementCount(a_.shape) == 0) return void(std::fill_n(output_.data, elementCount(o), 0.0f));
    const std::ptrdiff_t planeOfA = static_cast<std::ptrdiff_t>(a_.shape.h) * a_.shape.w;
    const std::ptrdiff_t planeOfB = static_cast<std::ptrdiff_t>(b_.shape.h) * b_.shape.w;
    const std::ptrdiff_t planeOfOut = static_cast<std::ptrdiff_t>(o.h) * o.w;
    for (std::ptrdiff_t n = 0; n < o.n; ++n)
        for (std::ptrdiff_t c = 0; c < o.c; ++c)
            multiplyPlane(a_.data + (n * a_.shape.c + c) * planeOfA, b_.data + (n * b_.shape.c + c) * planeOfB,
                          output_.data + (n * o.c + c) * planeOfOut);
}

void RawMatmulLayer::multiplyPlane(const float* a, const float* b, float* out) const {
    const int rows = output_.shape.h, w = output_.shape.w, k = a_.shape.w;
    int r = 0;
    for (; rows - r >= 4; r += 4, a += std::ptrdiff_t{4} * k, out += std::ptrdiff_t{4} * w)
        multiplyRows<4>(a, b, out, k, w);
    for (; r < rows; ++r, a += k, out += w) multiplyRows<1>(a, b, out, k, w);
}
