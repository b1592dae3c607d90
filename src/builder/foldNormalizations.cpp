#include "builder/foldNormalizations.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>

#include "layers/BatchNormalizationLayerFactory.h"
#include "layers/weights.h"

namespace {

constexpr int kBlock = 2048;  // weights that stay in the first cache while all factors are applied

struct ChannelFactors {
    double factor, addend;
};

ChannelFactors factorsOf(const BatchNormalizationLayerFactory& bn, int channel) {
    const auto c = static_cast<std::size_t>(channel);
    const float s = std::sqrt(bn.variance[c] + bn.epsilon);
    const float shifted = bn.scale[c] * bn.mean[c];
    return {static_cast<double>(bn.scale[c]) / static_cast<double>(s),
            static_cast<double>(bn.bias[c]) - static_cast<double>(shifted) / static_cast<double>(s)};
}

class Fold {
public:
    Fold(const NormalizationToFold& toFold, const nolk::Weights& weights)
        : isBefore(toFold.isBefore), isByInput(isBefore && weights.groups == 1) {
        const BatchNormalizationLayerFactory& bn = *toFold.normalization;
        const int stored =
            std::max({bn.scale.storedSize(), bn.bias.storedSize(), bn.mean.storedSize(), bn.variance.storedSize()});
        const int channels = isByInput ? weights.inChannels : weights.groups * weights.outChannels;
        for (int c = 0; c < std::min(channels, stored); ++c) different_.push_back(factorsOf(bn, c));
        others_ = factorsOf(bn, stored);
    }

    // With groups, the output channel is used in place of the input channel. In a depthwise convolution both are the
    // same. Other grouped convolutions keep this index because results of existing networks depend on it.
    const ChannelFactors& at(int outChannel, int inChannel) const {
        const auto c = static_cast<std::size_t>(isByInput ? inChannel : outChannel);
        return c < different_.size() ? different_[c] : others_;
    }

    // From this channel on, the factors are the same for all.
    int sameFrom() const { return static_cast<int>(different_.size()); }

    const bool isBefore;
    const bool isByInput;

private:
    std::vector<ChannelFactors> different_;  // of the first channels
    ChannelFactors others_;                  // of all channels behind them
};

// The weights of an output channel are a row; those of one input channel in it are a kernel.
class RowFolder {
public:
    RowFolder(const std::vector<NormalizationToFold>& normalizations, const nolk::Weights& weights, bool hasBias)
        : hasBias_(hasBias), sums_(normalizations.size()), added_(normalizations.size()) {
        for (const NormalizationToFold& n : normalizations) {
            folds_.emplace_back(n, weights);
            hasBefore_ = hasBefore_ || folds_.back().isBefore;
            isByInput_ = isByInput_ || folds_.back().isByInput;
            if (!folds_.back().isByInput) sameFrom_ = std::max(sameFrom_, folds_.back().sameFrom());
        }
        kernels_ = weights.inChannels;
        kernelSize_ = weights.kernelH * weights.kernelW;
        if (isByInput_) prepareZeros();
    }

    void foldWeights(int o, float* row) {
        std::fill(added_.begin(), added_.end(), 0.0);
        // Without the sums of its kernels, a row whose weights all have the same factors is a single kernel.
        const int kernels = hasBefore_ ? kernels_ : 1;
        const int kernelSize = hasBefore_ ? kernelSize_ : kernels_ * kernelSize_;
        for (int i = 0; i < kernels; ++i) foldKernel(o, i, row + std::ptrdiff_t{i} * kernelSize, kernelSize);
    }

    // The same for a row of zeros, in less time. A zero becomes 0, -0 or NaN, and the sum of a kernel is 0 or NaN.
    void foldZeros(int o, float* row) {
        const bool hasWeights = kernels_ * kernelSize_ > 0;
        float product = 0.0f;  // 0 times the factors of the output channel
        for (std::size_t n = 0; n < folds_.size(); ++n) {
            const Fold& fold = folds_[n];
            const auto factor = static_cast<float>(fold.at(o, 0).factor);
            const auto addend = static_cast<float>(fold.at(o, 0).addend);
            added_[n] = fold.isByInput ? addedByZeros_[n] : 0.0;
            if (fold.isBefore && !fold.isByInput && kernels_ > 0) added_[n] += static_cast<double>(0.0f * addend);
            if (fold.isBefore && hasWeights && (std::isnan(product) || n > firstNan_)) added_[n] += std::nan("");
            if (!fold.isByInput) product *= factor;
        }
        if (!hasWeights) return;
        const int kernels = isByInput_ ? kernels_ : 1, kernelSize = isByInput_ ? kernelSize_ : kernels_ * kernelSize_;
        for (int i = 0; i < kernels; ++i) {
            const float w = isByInput_ ? product * zeros_[static_cast<std::size_t>(i)] : product;
            if (countWithoutZerosAtEnd(&w, 1) > 0) std::fill_n(row + std::ptrdiff_t{i} * kernelSize, kernelSize, w);
        }
    }

    // The new bias of a row like the one that was folded last.
    float foldBias(int o, float bias) const {
        for (std::size_t n = 0; n < folds_.size(); ++n) {
            if (folds_[n].isBefore) {
                bias += static_cast<float>(added_[n]);
                continue;
            }
            const ChannelFactors& factors = folds_[n].at(o, 0);
            if (hasBias_ || n > 0) bias = static_cast<float>(static_cast<double>(bias) * factors.factor);
            bias += static_cast<float>(factors.addend);
        }
        return bias;
    }

    // Whether the row's factors are those of the row before.
    bool hasSameFactors(int o) const { return o > sameFrom_; }

private:
    // What the normalisations whose factors depend on the input channel make of zeros, which is the same in every row.
    void prepareZeros() {
        zeros_.resize(static_cast<std::size_t>(kernels_));
        addedByZeros_.resize(folds_.size());
        for (std::size_t n = 0; n < folds_.size(); ++n) {
            if (!folds_[n].isByInput) continue;
            // Without weights, one of the channels with equal factors is enough: each of them adds 0 or NaN.
            const int kernels = kernelSize_ > 0 ? kernels_ : std::min(kernels_, folds_[n].sameFrom() + 1);
            for (int i = 0; i < kernels; ++i) {
                float& zero = zeros_[static_cast<std::size_t>(i)];
                zero *= static_cast<float>(folds_[n].at(0, i).factor);
                if (std::isnan(zero)) firstNan_ = std::min(firstNan_, n);
                addedByZeros_[n] += static_cast<double>(0.0f * static_cast<float>(folds_[n].at(0, i).addend));
            }
        }
    }

    void foldKernel(int o, int i, float* kernel, int size) {
        std::fill(sums_.begin(), sums_.end(), 0.0f);
        for (int begin = 0, count = 0; begin < size; begin += count) {  // no more, as size may be 2^31 - 1
            count = std::min(size - begin, kBlock);
            for (std::size_t n = 0; n < folds_.size(); ++n) {
                const auto factor = static_cast<float>(folds_[n].at(o, i).factor);
                float* const w = kernel + begin;
                if (folds_[n].isBefore) sums_[n] = std::accumulate(w, w + count, sums_[n]);
                for (int k = 0; k < count; ++k) w[k] *= factor;
            }
        }
        if (!hasBefore_) return;
        for (std::size_t n = 0; n < folds_.size(); ++n) {
            const float share = sums_[n] * static_cast<float>(folds_[n].at(o, i).addend);
            added_[n] += static_cast<double>(share);
        }
    }

    std::vector<Fold> folds_;
    bool hasBias_, hasBefore_ = false, isByInput_ = false;
    int sameFrom_ = 0, kernels_, kernelSize_;
    std::vector<float> sums_;    // of the kernel's weights, before each fold
    std::vector<double> added_;  // to the bias, by each fold

    std::vector<float> zeros_;  // 0 times the factors of each input channel
    std::vector<double> addedByZeros_;
    std::size_t firstNan_ = SIZE_MAX;  // the first fold that makes one of zeros_ NaN
};

std::uint32_t bitsOf(float v) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

}  // namespace

// Only a row of zeros may be the same as the one before: other weights stand in the file, which bounds their number.
void foldNormalizations(const std::vector<NormalizationToFold>& normalizations, const nolk::Weights& weights,
                        bool hasBias, std::vector<float>& bias) {
    if (weightCount(weights) == 0 && bias.empty()) return;
    RowFolder folder(normalizations, weights, hasBias);
    const int rows = weights.groups * weights.outChannels;
    const int weightsOfRow = weights.inChannels * weights.kernelH * weights.kernelW;
    const auto rowLength = static_cast<std::size_t>(weightsOfRow);
    bool wasZero = false, staysZero = false;
    float oldBias = 0.0f, newBias = 0.0f;
    float* row = weights.weight;
    for (int o = 0; o < rows; ++o, row += rowLength) {
        const bool isZero = countWithoutZerosAtEnd(row, rowLength) == 0;
        const bool isSame = isZero && wasZero && folder.hasSameFactors(o);
        if (!isZero) {
            folder.foldWeights(o, row);
        } else if (!isSame) {
            folder.foldZeros(o, row);
            staysZero = countWithoutZerosAtEnd(row, rowLength) == 0;
        } else if (!staysZero) {
            std::copy_n(row - rowLength, rowLength, row);
        }
        wasZero = isZero;
        if (bias.empty()) continue;
        float& rowBias = bias[static_cast<std::size_t>(o)];
        if (!isSame || bitsOf(rowBias) != bitsOf(oldBias)) {
            oldBias = rowBias;
            newBias = folder.foldBias(o, rowBias);
        }
        rowBias = newBias;
    }
}
