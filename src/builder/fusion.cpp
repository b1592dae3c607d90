// Decides which neighbours a convolution or a max pooling absorbs, and updates its parameters. The builder asks again
// after each absorption, so one factory may absorb several neighbours.
#include <algorithm>
#include <cmath>

#include "builder/shapes.h"
#include "layers/BatchNormalizationLayerFactory.h"
#include "layers/ConvolutionLayerFactory.h"
#include "layers/PaddingLayerFactory.h"
#include "layers/PoolingLayerFactory.h"
#include "layers/weights.h"

namespace {

// Batch normalisation as y = factor * x + addend, per channel.
struct ChannelFactors {
    std::vector<double> factor;
    std::vector<double> addend;
};

int channelCount(const BatchNormalizationLayerFactory& bn) {
    return static_cast<int>(std::min({bn.mean.size(), bn.scale.size(), bn.bias.size(), bn.variance.size()}));
}

ChannelFactors channelFactors(const BatchNormalizationLayerFactory& bn) {
    ChannelFactors factors;
    for (std::size_t c = 0; c < static_cast<std::size_t>(channelCount(bn)); ++c) {
        const float s = std::sqrt(bn.variance[c] + bn.epsilon);
        const float shifted = bn.scale[c] * bn.mean[c];
        factors.factor.push_back(static_cast<double>(bn.scale[c]) / static_cast<double>(s));
        factors.addend.push_back(static_cast<double>(bn.bias[c]) -
                                 static_cast<double>(shifted) / static_cast<double>(s));
    }
    return factors;
}

void addPadding(nolk::Padding& padding, const nolk::Padding& more) {
    padding.top += more.top;
    padding.bottom += more.bottom;
    padding.left += more.left;
    padding.right += more.right;
}

// A copy, because weights.bias may point to fusedBias, which is about to be resized. With an empty output no bias is
// used, and the counts may be too large for the memory.
std::vector<float> oldBias(const nolk::Weights& weights, const nolk::TensorShape& output) {
    if (!weights.bias || elementCount(output) == 0) return {};
    return {weights.bias, weights.bias + biasCount(weights)};
}

bool isZero(const nolk::Padding& p) { return p.top == 0 && p.bottom == 0 && p.left == 0 && p.right == 0; }

}  // namespace

LayerFactory* ConvolutionLayerFactory::fuse() {
    LayerFactory* prev = fusiblePrev();
    // The weights of a convolution with an empty output have not been checked.
    const bool canScale = areCountable(weights) && (weights.weight || weightCount(weights) == 0);
    auto* bnBefore = dynamic_cast<BatchNormalizationLayerFactory*>(prev);
    if (bnBefore && canScale && isZero(padding) && canAbsorbPreBn(*bnBefore)) {
        absorbPreBn(bnBefore);
        return bnBefore;
    }
    auto* bnBehind = dynamic_cast<BatchNormalizationLayerFactory*>(fusibleNext());
    // A set of weights that several groups share cannot be multiplied by the factors of each.
    const bool oneFactorAWeight = !weights.shared || weights.groups == 1;
    if (bnBehind && canScale && oneFactorAWeight && output()->shape.c <= channelCount(*bnBehind)) {
        absorbBn(bnBehind);
        return bnBehind;
    }
    if (auto* pad = dynamic_cast<PaddingLayerFactory*>(prev)) {
        absorbPad(pad);
        return pad;
    }
    return nullptr;
}

void ConvolutionLayerFactory::absorbPad(PaddingLayerFactory* pad) {
    addPadding(padding, pad->padding);
    update_pre_comsumer();
}

// Every weight needs the factor of its input channel. Weights that several groups share would need several factors.
// Grouped convolutions use the output channel as index, so the vectors must be long enough for it.
bool ConvolutionLayerFactory::canAbsorbPreBn(const BatchNormalizationLayerFactory& bn) const {
    if (weights.groups == 1) return weights.inChannels <= channelCount(bn);
    return !weights.shared && output()->shape.c <= channelCount(bn);
}

// conv(factor * x + addend): multiplies each weight by the factor of its input channel, and adds the sum of
// weight * addend to the bias.
void ConvolutionLayerFactory::absorbPreBn(BatchNormalizationLayerFactory* bn) {
    const ChannelFactors factors = channelFactors(*bn);
    const std::vector<float> bias = oldBias(weights, output()->shape);
    const int outChannels = weights.groups * weights.outChannels;
    fusedBias.reserve(1);  // so that its address is not null
    fusedBias.resize(elementCount(output()->shape) > 0 ? static_cast<std::size_t>(outChannels) : 0);
    std::copy_n(bias.begin(), std::min(bias.size(), fusedBias.size()), fusedBias.begin());
    // Without weights and outputs there may be more channels than can be counted in reasonable time.
    const bool hasWork = weightCount(weights) > 0 || !fusedBias.empty();
    const bool isSameForAll = weightCount(weights) == 0 && weights.groups == 1;
    float* w = weights.weight;
    double added = 0.0;
    for (int o = 0; o < outChannels && hasWork; ++o) {
        if (o == 0 || !isSameForAll) added = foldPreBn(factors.factor, factors.addend, o, w);
        if (!fusedBias.empty()) fusedBias[static_cast<std::size_t>(o)] += static_cast<float>(added);
    }
    weights.bias = fusedBias.data();
    update_pre_comsumer();
}

// Multiplies the weights of an output channel, and moves w behind them. Returns what its bias increases by.
double ConvolutionLayerFactory::foldPreBn(const std::vector<double>& factors, const std::vector<double>& addends, int o,
                                          float*& w) const {
    const int kernelSize = weights.kernelH * weights.kernelW;
    // A sum without values is 0, but 0 times an infinite addend is not. With groups it is the same for every i.
    const int channels = kernelSize < 1 && weights.groups != 1 ? std::min(weights.inChannels, 1) : weights.inChannels;
    double added = 0.0;
    for (int i = 0; i < channels; ++i) {
        // With groups, the output channel is used in place of the input channel. In a depthwise convolution both are
        // the same. Other grouped convolutions keep this index because results of existing networks depend on it.
        const auto channel = static_cast<std::size_t>(weights.groups == 1 ? i : o);
        const auto factor = static_cast<float>(factors[channel]);
        float sum = 0.0f;
        for (int k = 0; k < kernelSize; ++k, ++w) {
            sum += *w;
            *w *= factor;
        }
        const float share = sum * static_cast<float>(addends[channel]);
        added += static_cast<double>(share);
    }
    return added;
}

// factor * conv(x) + addend: multiplies weights and bias by the factor of their output channel, and adds its addend to
// the bias.
void ConvolutionLayerFactory::absorbBn(BatchNormalizationLayerFactory* bn) {
    const ChannelFactors factors = channelFactors(*bn);
    const int channels = channelCount(*bn);
    const int rows = weights.shared ? weights.outChannels : weights.groups * weights.outChannels;
    const int rowLength = weights.inChannels * weights.kernelH * weights.kernelW;
    float* w = weights.weight;
    for (int o = 0; o < rows; ++o) {
        const auto factor = static_cast<float>(factors.factor[static_cast<std::size_t>(o)]);
        for (int k = 0; k < rowLength; ++k, ++w) *w *= factor;
    }

    const std::vector<float> bias = oldBias(weights, output()->shape);
    fusedBias.resize(static_cast<std::size_t>(channels));
    for (std::size_t c = 0; c < fusedBias.size(); ++c) {
        if (c < bias.size()) fusedBias[c] = static_cast<float>(static_cast<double>(bias[c]) * factors.factor[c]);
        fusedBias[c] += static_cast<float>(factors.addend[c]);
    }
    weights.bias = fusedBias.data();
    update_next_producer();
}

LayerFactory* PoolingLayerFactory::fuse() {
    auto* pad = dynamic_cast<PaddingLayerFactory*>(fusiblePrev());
    if (!pad || type != POOL_MAX) return nullptr;
    absorbPad(pad);
    return pad;
}

// This changes the maximum of a window that holds padding and only negative values: the zeros of the padding layer
// counted, but the pooling ignores its own padding. This is accepted because pooled values mostly come from a relu and
// then are not negative. The input still lists the padding as its consumer. That does no harm: fusion only counts
// consumers, and follows one only if it is a batch normalisation.
void PoolingLayerFactory::absorbPad(PaddingLayerFactory* pad) {
    addPadding(padding, pad->padding);
    inputs.front() = pad->inputs.front();
}
