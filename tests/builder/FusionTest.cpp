#include <gtest/gtest.h>

#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawPoolingLayerFactory.h"
#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/plain.h"

namespace {

using plain::Plain;

// Vectors of a batch normalisation, their variances positive.
struct Bn {
    Bn(int channels, Values& values)
        : scale(values.reals(channels)),
          bias(values.reals(channels)),
          mean(values.reals(channels)),
          variance(values.reals(channels)) {
        for (float& v : variance) v = 0.5f + v * v;
    }
    static nolk::Vector vector(std::vector<float>& v) { return {static_cast<int>(v.size()), v.data()}; }
    nolk::TensorX* record(nolk::RunnerBuilder* b, nolk::TensorX* x) {
        return b->batchNormalize(x, vector(scale), vector(bias), vector(mean), vector(variance), 1e-3f);
    }
    Plain apply(const Plain& x) const { return plain::batchNormalize(x, scale, bias, mean, variance, 1e-3f); }

    std::vector<float> scale, bias, mean, variance;
};

struct ChainCase {
    const char* claim;
    bool bnBefore, padBefore, bnBehind, bias;
    int groups;
    nolk::Padding padding;
};

const ChainCase kChains[] = {
    {"bn behind", false, false, true, true, 1, {1, 1, 1, 1}},
    {"bn behind, no bias", false, false, true, false, 1, {0, 0, 0, 0}},
    {"bn behind a grouped convolution", false, false, true, true, 2, {1, 0, 1, 0}},
    {"bn before", true, false, false, true, 1, {0, 0, 0, 0}},
    {"bn before, no bias", true, false, false, false, 1, {0, 0, 0, 0}},
    {"bn before a padded convolution stays", true, false, false, true, 1, {1, 1, 1, 1}},
    {"bn on both sides", true, false, true, true, 1, {0, 0, 0, 0}},
    {"bn on both sides, no bias", true, false, true, false, 1, {0, 0, 0, 0}},
    {"pad before", false, true, false, true, 1, {0, 1, 0, 1}},
    {"pad before, bn behind", false, true, true, true, 2, {0, 0, 0, 0}},
};

TEST(Fusion, ChainsComputeWhatTheyDidApart) {
    Values values(31);
    for (const ChainCase& c : kChains) {
        SCOPED_TRACE(c.claim);
        const Plain x{{2, 4, 6, 5, 3}, values.reals(2 * 4 * 6 * 5)};
        OwnedWeights weights(c.groups, 6 / c.groups, 4 / c.groups, 3, 3, c.bias, values);
        Bn before(4, values), behind(6, values);
        const nolk::Padding pad{1, 0, 2, 1};

        Plain expected = c.bnBefore ? before.apply(x) : x;
        if (c.padBefore) expected = plain::pad(expected, pad);
        expected = plain::convolve(expected, c.padding, {1, 1}, {1, 1}, weights.get());
        if (c.bnBehind) expected = behind.apply(expected);

        Net net;
        nolk::RunnerBuilder* b = net.operator->();
        nolk::TensorX* y = net.input(x.shape, x.values);
        if (c.bnBefore) y = before.record(b, y);
        if (c.padBefore) y = b->pad(y, pad);
        y = b->convolve(y, c.padding, {1, 1}, {1, 1}, weights.get());
        if (c.bnBehind) y = behind.record(b, y);
        expectClose(net.run({y})[0], expected.values, 2e-5f);
    }
}

// Depthwise takes the factors of its channels; with more outputs than factors, the normalisation stays apart.
TEST(Fusion, GroupsBehindANormalizationComputeWhatTheyDidApart) {
    Values values(32);
    for (const int outOfGroup : {1, 2}) {
        const Plain x{{1, 5, 4, 4, 3}, values.reals(80)};
        OwnedWeights weights(5, outOfGroup, 1, 3, 3, true, values);
        Bn bn(5, values);
        const Plain expected = plain::convolve(bn.apply(x), {}, {1, 1}, {1, 1}, weights.get());
        Net net;
        nolk::TensorX* y = bn.record(net.operator->(), net.input(x.shape, x.values));
        expectClose(net.run({net->convolve(y, {}, {1, 1}, {1, 1}, weights.get())})[0], expected.values, 2e-5f);
    }
}

TEST(Fusion, SharedWeightsStayApartFromTheFactorsOfSeveralGroups) {
    Values values(37);
    const Plain x{{1, 4, 3, 3, 3}, values.reals(36)};
    OwnedWeights weights(2, 2, 2, 1, 1, true, values, true);
    Bn bn(4, values);
    const Plain expected = bn.apply(plain::convolve(x, {}, {1, 1}, {1, 1}, weights.get()));
    Net net;
    nolk::TensorX* y = net->convolve(net.input(x.shape, x.values), {}, {1, 1}, {1, 1}, weights.get());
    expectClose(net.run({bn.record(net.operator->(), y)})[0], expected.values, 2e-5f);
}

// The arithmetic of folding, to the bit: factors in double, weights in single precision.
TEST(Fusion, FoldedWeightsAndBiasAreExact) {
    Values values(34);
    nolk::TensorX x({1, 2, 3, 3, 3}, false);
    OwnedWeights weights(1, 2, 2, 2, 1, true, values);
    OwnedWeights before = weights;
    Bn bn(2, values);
    RawConvolutionLayerFactory conv(&x, {}, {1, 1}, {1, 1}, weights.get(), 1, 0);
    RawBatchNormalizationLayerFactory behind(conv.output(), Bn::vector(bn.scale), Bn::vector(bn.bias),
                                             Bn::vector(bn.mean), Bn::vector(bn.variance), 0.01f);
    nolk::TensorX* result = behind.output();
    ASSERT_EQ(conv.fuse(), &behind);
    EXPECT_EQ(conv.output(), result);
    EXPECT_EQ(conv.fuse(), nullptr);
    for (std::size_t o = 0; o < 2; ++o) {
        const float s = std::sqrt(bn.variance[o] + 0.01f);
        const double factor = static_cast<double>(bn.scale[o]) / s;
        const float shifted = bn.scale[o] * bn.mean[o];
        const double addend = bn.bias[o] - static_cast<double>(shifted) / s;
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_EQ(weights.weight()[o * 4 + k], before.weight()[o * 4 + k] * static_cast<float>(factor));
        const float folded = static_cast<float>(before.bias()[o] * factor) + static_cast<float>(addend);
        EXPECT_EQ(conv.weights.bias[o], folded);
    }
}

TEST(Fusion, MaximumTakesAPaddingOverAndAverageDoesNot) {
    const std::vector<float> values = {-1, -2, -3, -4};
    const nolk::Padding ring{1, 1, 1, 1};
    Net max, average;
    // The padding's zeros take no part in a fused maximum: it stays negative.
    nolk::TensorX* x = max->pad(max.input({1, 1, 2, 2, 3}, values), ring);
    expectSameBits(max.run({max->maxPool(x, {2, 2}, {}, {2, 2})})[0], values);
    x = average->pad(average.input({1, 1, 2, 2, 3}, values), ring);
    expectSameBits(average.run({average->avgPool(x, {2, 2}, {}, {2, 2})})[0], {-0.25f, -0.5f, -0.75f, -1.0f});
}

// An absorbed padding is still named as a consumer when the walk starts anew and comes to the convolution in front of
// it.
TEST(Fusion, AbsorbedFactoriesMayStillBeAskedFor) {
    Values values(35);
    const Plain x{{1, 2, 5, 5, 3}, values.reals(50)};
    OwnedWeights weights(1, 3, 2, 3, 3, true, values);
    const Plain conv = plain::convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, weights.get());
    const Plain expected = plain::pool(conv, POOL_MAX, {3, 3}, {1, 1, 1, 1}, {1, 1});
    Net net;
    nolk::TensorX* y = net->convolve(net.input(x.shape, x.values), {1, 1, 1, 1}, {1, 1}, {1, 1}, weights.get());
    y = net->maxPool(net->pad(y, {1, 1, 1, 1}), {3, 3}, {}, {1, 1});
    expectClose(net.run({y})[0], expected.values, 1e-5f);
}

TEST(Fusion, ATensorThatOthersReadStays) {
    Values values(36);
    const Plain x{{1, 2, 4, 4, 3}, values.reals(32)};
    OwnedWeights weights(1, 2, 2, 3, 3, false, values);
    Bn bn(2, values);
    const Plain conv = plain::convolve(x, {}, {1, 1}, {1, 1}, weights.get());
    const Plain normal = bn.apply(conv);
    Net net;
    nolk::TensorX* y = net->convolve(net.input(x.shape, x.values), {}, {1, 1}, {1, 1}, weights.get());
    nolk::TensorX* z = bn.record(net.operator->(), y);
    const auto out = net.run({net->relu(y), z});
    expectClose(out[0], plain::activate(conv, ACT_RELU, 0, 0).values, 1e-5f);
    expectClose(out[1], normal.values, 1e-5f);
}

}  // namespace
