#include "layers/RawBatchNormalizationLayer.h"

#include <cmath>
#include <utility>

#include "builder/shapes.h"
#include "math/elements.h"

RawBatchNormalizationLayer::RawBatchNormalizationLayer(nolk::Tensor input, nolk::Tensor output, ChannelVector scale,
                                                       ChannelVector bias, ChannelVector mean, ChannelVector variance,
                                                       float epsilon)
    : scale_(std::move(scale)),
      bias_(std::move(bias)),
      mean_(std::move(mean)),
      variance_(std::move(variance)),
      epsilon_(epsilon),
      input_(input),
      output_(output) {
    desc = "bn";
}

void RawBatchNormalizationLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& in = input_.shape;
    if (elementCount(in) == 0) return;
    const int plane = in.h * in.w;
    std::ptrdiff_t offset = 0;
    for (int n = 0; n < in.n; ++n)
        for (std::size_t c = 0; c < static_cast<std::size_t>(in.c); ++c, offset += plane) {
            const float mean = mean_[c], scale = scale_[c], bias = bias_[c];
            const float deviation = std::sqrt(variance_[c] + epsilon_);
            mapElements(plane, output_.data + offset, input_.data + offset,
                        [mean, scale, bias, deviation](float x) { return ((x - mean) * scale) / deviation + bias; });
        }
}
