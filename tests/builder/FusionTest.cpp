#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <utility>

#include "builder/foldNormalizations.h"
#include "builder/fuseAll.h"
#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawPoolingLayerFactory.h"
#include "layers/weights.h"
#include "support/expectReference.h"
#include "support/values.h"

namespace {

constexpr float kTolerance = 2e-5f;  // folding rounds weights anew, and products are summed in an order of their own

X normalize(Recording& r, X x, int channels) {
    const nolk::Vector scale = r.vector(channels), bias = r.vector(channels), mean = r.vector(channels);
    return r->batchNormalize(x, scale, bias, mean, r.positive(channels), 1e-3f);
}

TEST(Fusion, ChainsComputeWhatTheyDidApart) {
    const struct {
        const char* claim;
        bool bnBefore, padBefore, bnBehind, bias;
        int groups;
        nolk::Padding padding;
        bool shared = false;
        int outputs = 6;
    } cases[] = {
        {"bn behind", false, false, true, true, 1, {1, 1, 1, 1}},
        {"bn behind, no bias", false, false, true, false, 1, {0, 0, 0, 0}},
        {"bn behind a grouped convolution", false, false, true, true, 2, {1, 0, 1, 0}},
        {"bn behind several groups that share weights stays", false, false, true, true, 2, {0, 0, 0, 0}, true},
        {"bn before", true, false, false, true, 1, {0, 0, 0, 0}},
        {"bn before, no bias", true, false, false, false, 1, {0, 0, 0, 0}},
        {"bn before a padded convolution stays", true, false, false, true, 1, {1, 1, 1, 1}},
        {"bn before several groups with more outputs than factors stays", true, false, false, true, 2, {0, 0, 0, 0}},
        {"bn before a depthwise convolution", true, false, false, true, 4, {0, 0, 0, 0}, false, 4},
        {"bn on both sides", true, false, true, true, 1, {0, 0, 0, 0}},
        {"bn on both sides, no bias", true, false, true, false, 1, {0, 0, 0, 0}},
        {"pad before", false, true, false, true, 1, {0, 1, 0, 1}},
        {"pad before, bn behind", false, true, true, true, 2, {0, 0, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.claim);
        const auto record = [&](Recording& r) {
            X y = c.bnBefore ? normalize(r, r.x[0], 4) : r.x[0];
            if (c.padBefore) y = r->pad(y, {1, 0, 2, 1});
            y = r->convolve(y, c.padding, {1, 1}, {1, 1},
                            r.weights(c.groups, c.outputs / c.groups, 4 / c.groups, 3, 3, c.bias, c.shared));
            return c.bnBehind ? normalize(r, y, 6) : y;
        };
        expectReference({{2, 4, 6, 5, 3}}, record, kTolerance);
    }
}

// One normalisation after the other: each rounds all weights and biases.
void foldOne(const RawBatchNormalizationLayerFactory& bn, bool isBefore, const nolk::Weights& w, float* bias,
             bool had) {
    const int size = w.kernelH * w.kernelW;
    for (int o = 0; o < w.groups * w.outChannels; ++o) {
        const auto factorsOf = [&](int channel) {
            const auto c = static_cast<std::size_t>(channel);
            const float s = std::sqrt(bn.variance[c] + bn.epsilon), shifted = bn.scale[c] * bn.mean[c];
            return std::pair(double{bn.scale[c]} / double{s}, double{bn.bias[c]} - double{shifted} / double{s});
        };
        double added = 0.0;
        for (int i = 0; i < w.inChannels; ++i) {
            const auto [factor, addend] = factorsOf(isBefore && w.groups == 1 ? i : o);
            float* const kernel = w.weight + (o * w.inChannels + i) * size;
            float sum = 0.0f;
            for (int k = 0; k < size; ++k) {
                sum += kernel[k];
                kernel[k] *= static_cast<float>(factor);
            }
            added += double{sum * static_cast<float>(addend)};
        }
        if (isBefore) {
            bias[o] += static_cast<float>(added);
            continue;
        }
        const auto [factor, addend] = factorsOf(o);
        bias[o] = had ? static_cast<float>(bias[o] * factor) : bias[o];
        bias[o] += static_cast<float>(addend);
    }
}

// Zeros take ways of their own, and so do values that differ between the channels.
TEST(Fusion, FoldingAllNormalizationsAtOnceGivesTheBitsOfOneAfterTheOther) {
    constexpr int kChannels = 12;
    for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        SCOPED_TRACE(seed);
        Values random(seed);
        // Zeros, zeros from some place on, one value for all, or random ones.
        const auto fill = [&](float* values, int count, float special) {
            const int kind = random.integer(0, 4), kept = random.integer(0, count);
            for (int i = 0; i < count; ++i) values[i] = kind == 0 ? special : kind == 1 || i >= kept ? 0.0f : values[i];
        };
        Arrays arrays(seed);
        const int groups = random.integer(0, 1) ? 1 : random.integer(2, 4);
        const int height = random.integer(0, 40) ? random.integer(0, 3) : 2500;
        const nolk::Weights weights =
            arrays.weights(groups, random.integer(0, 3), random.integer(0, 3), height, random.integer(0, 2), true);
        const bool hasBias = random.integer(0, 2) > 0;
        const auto count = static_cast<std::size_t>(biasCount(weights));
        fill(weights.weight, weightCount(weights), -0.0f);
        fill(weights.bias, biasCount(weights), hasBias ? -0.0f : 0.0f);
        if (!hasBias) std::fill_n(weights.bias, count, 0.0f);

        nolk::TensorX x({1, kChannels, 1, 1, 1}, false);
        std::vector<std::unique_ptr<RawBatchNormalizationLayerFactory>> normalizations;
        std::vector<NormalizationToFold> toFold;
        for (int n = random.integer(0, 5); n > 0; --n) {
            const nolk::Vector v[] = {arrays.vector(kChannels), arrays.vector(kChannels), arrays.vector(kChannels),
                                      arrays.positive(kChannels)};
            for (const nolk::Vector& vector : v) fill(vector.data, kChannels, random.integer(0, 3) ? 1.5f : -INFINITY);
            normalizations.push_back(std::make_unique<RawBatchNormalizationLayerFactory>(
                &x, v[0], v[1], v[2], v[3], random.integer(0, 7) ? 0.5f : 0.0f));
            toFold.push_back({normalizations.back().get(), random.integer(0, 2) > 0});
        }
        std::vector<float> expected(weights.weight, weights.weight + weightCount(weights));
        std::vector<float> expectedBias(weights.bias, weights.bias + count), bias = expectedBias;
        nolk::Weights plain = weights;
        plain.weight = expected.data();
        for (std::size_t n = 0; n < toFold.size(); ++n)
            foldOne(*normalizations[n], toFold[n].isBefore, plain, expectedBias.data(), hasBias || n > 0);
        foldNormalizations(toFold, weights, hasBias, bias);
        expectSameBits({weights.weight, weights.weight + weightCount(weights)}, expected);
        expectSameBits(bias, expectedBias);
        if (HasFailure()) return;
    }
}

TEST(Fusion, MaximumTakesAPaddingOverAndAverageDoesNot) {
    const std::vector<float> values = {-1, -2, -3, -4};
    const nolk::Padding ring{1, 1, 1, 1};
    Net net;
    X const x = net.input({1, 1, 2, 2, 3}, values), max = net->maxPool(net->pad(x, ring), {2, 2}, {}, {2, 2});
    const auto out = net.run({max, net->avgPool(net->pad(x, ring), {2, 2}, {}, {2, 2})});
    // The padding's zeros take no part in a fused maximum: it stays negative.
    expectSameBits(out[0], values);
    expectSameBits(out[1], {-0.25f, -0.5f, -0.75f, -1.0f});
}

// An absorbed padding is still named as a consumer when the walk starts anew and comes to the convolution in front of
// it. The relu leaves no values below the padding's.
TEST(Fusion, AbsorbedFactoriesMayStillBeAskedForAndATensorThatOthersReadStays) {
    const Record records[] = {
        [](Recording& r) {
            X const y = r->convolve(r.x[0], {1, 1, 1, 1}, {1, 1}, {1, 1}, r.weights(1, 3, 2, 3, 3, true));
            return r->relu(r->maxPool(r->pad(y, {1, 1, 1, 1}), {3, 3}, {}, {1, 1}));
        },
        [](Recording& r) {
            X const y = r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 2, 2, 3, 3, false));
            return r->add(r->relu(y), normalize(r, y, 2));
        },
    };
    for (const Record& record : records) expectReference({{1, 2, 5, 5, 3}}, record, kTolerance);
}

// c: a convolution without a bias, C: one that has got a bias; n: a batch normalisation; p: a padding; m: a max
// pooling.
TEST(Fusion, EachFactoryOfAChainAbsorbsAllItCanBeforeTheNextOneDoes) {
    const std::pair<const char*, const char*> chains[] = {
        {"cnc", "Cc"}, {"cncnpm", "CCm"}, {"pncn", "C"}, {"ppc", "c"},  {"pnc", "C"},
        {"npc", "nc"}, {"cnn", "C"},      {"cpm", "cm"}, {"pmn", "mn"}, {"nncpnc", "CC"},
    };
    for (const auto& [chain, left] : chains) {
        Arrays arrays(1);
        nolk::TensorX x({1, 2, 5, 5, 3}, false);
        std::vector<std::unique_ptr<LayerFactory>> factories;
        for (const char* letter = chain; *letter != '\0'; ++letter) {
            nolk::TensorX* const in = factories.empty() ? &x : factories.back()->output();
            const nolk::DimsHW one{1, 1};
            if (*letter == 'p')
                factories.push_back(std::make_unique<RawPaddingLayerFactory>(in, nolk::Padding{1, 0, 0, 0}));
            else if (*letter == 'm')
                factories.push_back(std::make_unique<RawPoolingLayerFactory>(in, POOL_MAX, one, nolk::Padding{}, one));
            else if (*letter == 'c')
                factories.push_back(std::make_unique<RawConvolutionLayerFactory>(
                    in, nolk::Padding{}, one, one, arrays.weights(1, 2, 2, 1, 1, false), 1, 0));
            else
                factories.push_back(std::make_unique<RawBatchNormalizationLayerFactory>(
                    in, arrays.vector(2), arrays.vector(2), arrays.vector(2), arrays.positive(2), 0.1f));
        }
        std::vector<const LayerFactory*> all;
        for (const auto& factory : factories) all.push_back(factory.get());
        const auto absorbed = fuseAll(factories);
        std::string actual;
        for (const auto& factory : factories) {
            const auto place = std::find(all.begin(), all.end(), factory.get()) - all.begin();
            const auto* conv = dynamic_cast<const ConvolutionLayerFactory*>(factory.get());
            actual += conv && conv->weights.bias ? 'C' : chain[place];
        }
        EXPECT_EQ(actual, left) << chain;
        EXPECT_EQ(absorbed.size() + factories.size(), all.size());
    }
}

}  // namespace
