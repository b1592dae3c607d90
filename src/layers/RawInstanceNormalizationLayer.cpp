#include "layers/RawInstanceNormalizationLayer.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "builder/shapes.h"
#include "math/elements.h"

RawInstanceNormalizationLayer::RawInstanceNormalizationLayer(nolk::Tensor input, nolk::Tensor output,
                                                             ChannelVector scale, ChannelVector bias, float epsilon)
    : input_(input), output_(output), scale_(std::move(scale)), bias_(std::move(bias)), epsilon_(epsilon) {
    desc = "instanceNorm";
}

void RawInstanceNormalizationLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& s = input_.shape;
    if (elementCount(s) == 0) return;
    const int plane = s.h * s.w;
    for (int n = 0; n < s.n; ++n)
        for (int c = 0; c < s.c; ++c) {
            const std::ptrdiff_t begin = (static_cast<std::ptrdiff_t>(n) * s.c + c) * plane;
            normalizePlane(input_.data + begin, output_.data + begin, plane, c);
        }
}

void RawInstanceNormalizationLayer::normalizePlane(const float* in, float* out, int count, int channel) const {
    const float size = static_cast<float>(count);
    float sum = 0.0f;
    for (int i = 0; i < count; ++i) sum += in[i];
    const float mean = sum / size;
    float squares = 0.0f;
    for (int i = 0; i < count; ++i) squares = std::fma(in[i] - mean, in[i] - mean, squares);

    const auto index = static_cast<std::size_t>(channel);
    const float scale = scale_.empty() ? 1.0f : scale_[index], bias = bias_.empty() ? 0.0f : bias_[index];
    const float k = scale / std::sqrt(squares / size + epsilon_);
    const float t = std::fma(-mean, k, bias);
    mapElements(count, out, in, [k, t](float x) { return std::fma(x, k, t); });
}
