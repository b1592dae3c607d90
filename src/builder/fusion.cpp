// Decides which neighbours a convolution or a max pooling absorbs, and updates its parameters. The builder asks again
// after each absorption, so one factory may absorb several neighbours.
#include <algorithm>
#include <utility>

#include "builder/shapes.h"
#include "layers/BatchNormalizationLayerFactory.h"
#include "layers/ConvolutionLayerFactory.h"
#include "layers/PaddingLayerFactory.h"
#include "layers/PoolingLayerFactory.h"
#include "layers/weights.h"

namespace {

int channelCount(const BatchNormalizationLayerFactory& bn) {
    return std::min({bn.mean.size(), bn.scale.size(), bn.bias.size(), bn.variance.size()});
}

void addPadding(nolk::Padding& padding, const nolk::Padding& more) {
    padding.top += more.top;
    padding.bottom += more.bottom;
    padding.left += more.left;
    padding.right += more.right;
}

bool isZero(const nolk::Padding& p) { return p.top == 0 && p.bottom == 0 && p.left == 0 && p.right == 0; }

}  // namespace

LayerFactory* ConvolutionLayerFactory::fuse() {
    LayerFactory* const absorbed = absorbNeighbour();
    if (!absorbed) foldAbsorbed();
    return absorbed;
}

LayerFactory* ConvolutionLayerFactory::absorbNeighbour() {
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

void ConvolutionLayerFactory::absorbPreBn(BatchNormalizationLayerFactory* bn) {
    toFold_.push_back({bn, true});
    update_pre_comsumer();
}

void ConvolutionLayerFactory::absorbBn(BatchNormalizationLayerFactory* bn) {
    toFold_.push_back({bn, false});
    update_next_producer();
}

void ConvolutionLayerFactory::foldAbsorbed() {
    if (toFold_.empty()) return;
    // With an empty output no bias is used, and the counts may be too large for the memory.
    const bool hasOutput = elementCount(output()->shape) > 0, hasBias = weights.bias != nullptr;
    std::vector<float> bias;
    bias.reserve(1);  // so that its address is not null
    if (hasOutput && hasBias) bias.assign(weights.bias, weights.bias + biasCount(weights));
    bias.resize(hasOutput ? static_cast<std::size_t>(weights.groups * weights.outChannels) : 0);
    foldNormalizations(toFold_, weights, hasBias, bias);
    fusedBias = std::move(bias);
    weights.bias = fusedBias.data();
    toFold_.clear();
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
