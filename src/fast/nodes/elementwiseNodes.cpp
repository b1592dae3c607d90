#include "fast/nodes/makeNode.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "builder/shapes.h"
#include "fast/nodes/builtInNode.h"
#include "layers/RawActLayer.h"
#include "layers/RawActLayerFactory.h"
#include "layers/RawBatchNormalizationLayer.h"
#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawEltwiseLayer.h"
#include "layers/RawEltwiseLayerFactory.h"

using nolk::TensorShape;

namespace {

FastNode elementwise(FastNodeStep step) {
    FastNode node = nodeWith(FastElementwise{});
    node.steps.push_back(std::move(step));
    return node;
}

bool areEqual(const ChannelVector& vector, int channels) {
    const std::vector<float> values = vector.first(std::min(vector.storedSize(), channels - 1) + 1);
    return std::all_of(values.begin(), values.end(), [&](float value) { return value == values.front(); });
}

}  // namespace

FastNode activationNode(const RawActLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    FastNodeStep step;
    switch (f.type()) {
        case ACT_RELU:
            step.step = {FastStepKind::relu, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_SIGMOID:
            step.step = {FastStepKind::sigmoid, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_EXP:
            step.step = {FastStepKind::exp, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_CLIP:
            step.step = {FastStepKind::clip, f.p0(), f.p1()};
            return elementwise(step);
        case ACT_HARD_SIGMOID:
            step.step = {FastStepKind::hardSigmoid, f.p2(), f.p3()};
            return elementwise(step);
        case ACT_ABS:
            step.step = {FastStepKind::abs, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_LEAKY_RELU:
            step.step = {FastStepKind::leakyRelu, f.p2(), 0.0f};
            return elementwise(step);
        case ACT_TANH:
            step.step = {FastStepKind::tanh, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_PRELU:
            // In a batch above 1 different slopes do not follow the channels; the built-in layer has the rule.
            if (elementCount(in) == 0 || (in.n != 1 && !areEqual(f.slopes(), in.c))) break;
            step.step = {FastStepKind::prelu, 0.0f, 0.0f};
            step.kind = FastOperandKind::constants;
            step.first = {f.slopes(), in.c};
            return elementwise(step);
    }
    return nodeWith(builtIn<RawActLayer>(f, f.type(), f.slopes(), f.p0(), f.p1(), f.p2(), f.p3()));
}

FastNode eltwiseNode(const RawEltwiseLayerFactory& f) {
    static constexpr FastStepKind kKinds[] = {FastStepKind::add, FastStepKind::sub, FastStepKind::mul,
                                              FastStepKind::div, FastStepKind::max};
    const TensorShape& a = f.inputs[0]->shape;
    const TensorShape& b = f.inputs[1]->shape;
    FastNodeStep step;
    if (sameExtents(a, b))
        step.kind = FastOperandKind::tensor;
    else if (a.n == b.n && b.h == 1 && b.w == 1 && b.c == a.c)
        step.kind = FastOperandKind::channels;
    else if (a.n == b.n && b.h == 1 && b.w == 1 && b.c == 1)
        step.kind = FastOperandKind::sample;
    const bool known = f.type() >= ELTWISE_ADD && f.type() <= ELTWISE_MAX;
    if (!known || elementCount(a) == 0 || elementCount(b) == 0 || step.kind == FastOperandKind::none)
        return nodeWith(builtInOfTwo<RawEltwiseLayer>(f, f.type()));
    step.step.kind = kKinds[f.type()];
    return elementwise(step);
}

// y = factor * x + addend, for each channel. In double, so that each is rounded once.
FastNode batchNormalizationNode(const RawBatchNormalizationLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    if (elementCount(in) == 0)
        return nodeWith(builtIn<RawBatchNormalizationLayer>(f, f.scale, f.bias, f.mean, f.variance, f.epsilon));
    FastNodeStep step;
    step.step.kind = FastStepKind::scaleAdd;
    step.kind = FastOperandKind::constants;
    // All channels behind the last stored value have the same.
    const int stored =
        std::max({f.scale.storedSize(), f.bias.storedSize(), f.mean.storedSize(), f.variance.storedSize()});
    std::vector<float> factors, addends;
    for (std::size_t c = 0; c <= static_cast<std::size_t>(std::min(stored, in.c - 1)); ++c) {
        const double factor = static_cast<double>(f.scale[c]) /
                              std::sqrt(static_cast<double>(f.variance[c]) + static_cast<double>(f.epsilon));
        factors.push_back(static_cast<float>(factor));
        addends.push_back(static_cast<float>(static_cast<double>(f.bias[c]) - static_cast<double>(f.mean[c]) * factor));
    }
    step.first = {factors, in.c};
    step.second = {addends, in.c};
    return elementwise(step);
}
