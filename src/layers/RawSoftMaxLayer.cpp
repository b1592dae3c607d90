#include "layers/RawSoftMaxLayer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>

#include "builder/shapes.h"
#include "math/blas.h"

namespace {

// Number of lines that are processed together, so that the inner loops run over adjacent floats.
constexpr int kLines = 64;

// Softmax of `lines` neighbouring lines, at most kLines, of `length` values that are `stride` apart.
void softmaxLines(const float* in, float* out, int length, std::ptrdiff_t stride, int lines) {
    float largest[kLines], sum[kLines];
    std::copy_n(in, lines, largest);
    std::fill_n(sum, lines, 0.0f);
    for (int k = 1; k < length; ++k)
        for (int i = 0; i < lines; ++i) {
            const float x = in[k * stride + i];
            largest[i] = x > largest[i] ? x : largest[i];
        }
    for (int k = 0; k < length; ++k)
        for (int i = 0; i < lines; ++i) {
            const float e = std::exp(in[k * stride + i] - largest[i]);
            out[k * stride + i] = e;
            sum[i] += e;
        }
    for (int k = 0; k < length; ++k) vectorDiv(lines, out + k * stride, sum);
}

// Softmax of one line of adjacent values.
void softmaxRow(const float* in, float* out, int length) {
    float largest = in[0], sum = 0.0f;
    for (int k = 1; k < length; ++k) largest = in[k] > largest ? in[k] : largest;
    for (int k = 0; k < length; ++k) {
        const float e = std::exp(in[k] - largest);
        out[k] = e;
        sum += e;
    }
    vectorDiv(length, out, sum);
}

// Softmax of all lines of a block [length, width]. The lines run along its first dimension.
void softmaxBlock(const float* in, float* out, int length, int width) {
    if (width == 1) return softmaxRow(in, out, length);
    for (int begin = 0; begin < width; begin += std::min(kLines, width - begin))
        softmaxLines(in + begin, out + begin, length, width, std::min(kLines, width - begin));
}

}  // namespace

RawSoftMaxLayer::RawSoftMaxLayer(nolk::Tensor input, nolk::Tensor output, int axis)
    : input_(input), output_(output), axis_(axis) {
    desc = "softmax";
}

void RawSoftMaxLayer::run(AlignedMemory<float>&) {
    if (axis_ < 1 || axis_ > 3) {
        std::fprintf(stderr, "unknown softmax axis: %d\n", axis_);
        return;
    }
    if (elementCount(input_.shape) == 0) return;
    if (axis_ == 1) softmaxC();
    if (axis_ == 2) softmaxH();
    if (axis_ == 3) softmaxW();
}

void RawSoftMaxLayer::softmaxC() const {
    const nolk::TensorShape& s = input_.shape;
    const std::ptrdiff_t sample = static_cast<std::ptrdiff_t>(s.c) * s.h * s.w;
    for (int n = 0; n < s.n; ++n) softmaxBlock(input_.data + n * sample, output_.data + n * sample, s.c, s.h * s.w);
}

void RawSoftMaxLayer::softmaxH() const {
    const nolk::TensorShape& s = input_.shape;
    const std::ptrdiff_t plane = static_cast<std::ptrdiff_t>(s.h) * s.w;
    for (int i = 0; i < s.n * s.c; ++i) softmaxBlock(input_.data + i * plane, output_.data + i * plane, s.h, s.w);
}

void RawSoftMaxLayer::softmaxW() const {
    const nolk::TensorShape& s = input_.shape;
    for (std::ptrdiff_t i = 0; i < s.n * s.c * s.h; ++i) softmaxRow(input_.data + i * s.w, output_.data + i * s.w, s.w);
}
