#include "layers/RawActLayer.h"

#include <cmath>
#include <utility>

#include "builder/shapes.h"
#include "math/elements.h"
#include "math/quotient.h"

RawActLayer::RawActLayer(nolk::Tensor input, nolk::Tensor output, ActivateType type, ChannelVector slopes, float p0,
                         float p1, float p2, float p3)
    : input_(input), output_(output), type_(type), p0_(p0), p1_(p1), p2_(p2), p3_(p3), slopes_(std::move(slopes)) {
    desc = "act";
}

void RawActLayer::run(AlignedMemory<float>&) {
    const int count = elementCount(input_.shape);
    const auto apply = [this, count](auto f) { mapElements(count, output_.data, input_.data, f); };
    const float p0 = p0_, p1 = p1_, p2 = p2_, p3 = p3_;
    switch (type_) {
        case ACT_RELU:
            return apply([](float x) { return x < 0.0f ? 0.0f : x; });
        case ACT_SIGMOID:
            return apply([](float x) { return 1.0f / (std::exp(-x) + 1.0f); });
        case ACT_EXP:
            return apply([](float x) { return std::exp(x); });
        case ACT_CLIP:
            return apply([p0, p1](float x) { return x < p0 ? p0 : (x > p1 ? p1 : x); });
        case ACT_HARD_SIGMOID:
            return apply([p2, p3](float x) {
                const float t = std::fma(x, p2, p3);
                return t < 0.0f ? 0.0f : (t > 1.0f ? 1.0f : t);
            });
        case ACT_ABS:
            return apply([](float x) { return std::fabs(x); });
        case ACT_LEAKY_RELU:
            return apply([p2](float x) { return x < 0.0f ? x * p2 : x; });
        case ACT_TANH:
            return apply([](float x) { return std::tanh(x); });
        case ACT_PRELU:
            return prelu(count);
    }
    // A layer cannot report anything to the caller of run, so an unknown type leaves the output unchanged.
}

// Slope k belongs to the k-th of c equal parts of the whole tensor. In a batch above 1 these parts are not the
// channels, but nolk.h describes it so and hosts may depend on it.
void RawActLayer::prelu(int count) const {
    if (count == 0) return;
    const int channels = input_.shape.c;
    const int runLength = quotient(count, channels);
    for (int k = 0; k < channels; ++k) {
        const float slope = slopes_[static_cast<std::size_t>(k)];
        const std::ptrdiff_t begin = static_cast<std::ptrdiff_t>(k) * runLength;
        mapElements(runLength, output_.data + begin, input_.data + begin,
                    [slope](float x) { return x < 0.0f ? x * slope : x; });
    }
}
