#include "layers/RawL2NormalizationLayer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "builder/shapes.h"
#include "math/blas.h"

namespace {

// Number of positions that are processed together, so that the inner loops run over adjacent floats.
constexpr int kPositions = 64;

// Normalises at most kPositions neighbouring positions. The channels of a position are `plane` floats apart.
void normalizePositions(const float* in, float* out, int channels, int plane, int positions) {
    float norm[kPositions] = {};
    for (std::ptrdiff_t c = 0; c < channels; ++c)
        for (int i = 0; i < positions; ++i) norm[i] = std::fma(in[c * plane + i], in[c * plane + i], norm[i]);
    for (int i = 0; i < positions; ++i) norm[i] = std::sqrt(norm[i]);
    if (plane == 1) return vectorDiv(channels, out, in, norm[0]);
    for (std::ptrdiff_t c = 0; c < channels; ++c) vectorDiv(positions, out + c * plane, in + c * plane, norm);
}

}  // namespace

RawL2NormalizationLayer::RawL2NormalizationLayer(nolk::Tensor input, nolk::Tensor output)
    : input_(input), output_(output) {
    desc = "l2norm";
}

void RawL2NormalizationLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& s = input_.shape;
    if (elementCount(s) == 0) return;
    const int plane = s.h * s.w;
    for (std::ptrdiff_t n = 0; n < s.n; ++n)
        for (int begin = 0; begin < plane; begin += std::min(kPositions, plane - begin)) {
            const std::ptrdiff_t offset = n * s.c * plane + begin;
            normalizePositions(input_.data + offset, output_.data + offset, s.c, plane,
                               std::min(kPositions, plane - begin));
        }
}
