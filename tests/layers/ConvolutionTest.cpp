#include <gtest/gtest.h>

#include <stdexcept>

#include "layers/RawConvolutionLayer.h"
#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/plain.h"

namespace {

using plain::Plain;

struct Case {
    const char* claim;
    nolk::TensorShape in;
    int groups, out, inPerGroup, kernelH, kernelW;
    nolk::Padding padding;
    nolk::DimsHW stride, dilation;
    bool bias;
    bool shared;
    const char* cfg;
};

const Case kCases[] = {
    {"3x3 with a border", {2, 3, 7, 9, 3}, 1, 5, 3, 3, 3, {1, 1, 1, 1}, {1, 1}, {1, 1}, true, false, nullptr},
    {"uneven border", {1, 2, 5, 4, 3}, 1, 3, 2, 3, 2, {2, 0, 1, 3}, {1, 1}, {1, 1}, false, false, nullptr},
    {"wide rows, several blocks of positions",
     {1, 2, 4, 37, 3},
     1,
     4,
     2,
     3,
     5,
     {1, 1, 2, 2},
     {1, 1},
     {1, 1},
     true,
     false,
     nullptr},
    {"dilated in wide rows", {1, 2, 9, 23, 3}, 1, 4, 2, 3, 3, {2, 1, 3, 2}, {2, 1}, {2, 3}, true, false, nullptr},
    {"cropped wide rows", {1, 3, 5, 21, 3}, 1, 2, 3, 3, 3, {0, 0, -2, -1}, {1, 1}, {1, 1}, true, false, nullptr},
    {"strides", {1, 3, 11, 13, 3}, 1, 4, 3, 3, 3, {1, 1, 1, 1}, {2, 3}, {1, 1}, true, false, nullptr},
    {"stride 2 in wide rows", {2, 2, 9, 37, 3}, 1, 4, 2, 3, 3, {1, 1, 1, 1}, {2, 2}, {1, 1}, true, false, nullptr},
    {"stride 2, odd border", {1, 3, 6, 40, 3}, 1, 2, 3, 3, 4, {0, 0, 3, 2}, {1, 2}, {1, 2}, true, false, nullptr},
    {"stride 2, cropped", {1, 3, 6, 33, 3}, 1, 2, 3, 2, 5, {0, 0, -3, -1}, {1, 2}, {1, 1}, true, false, nullptr},
    {"stride 2 to the last column",
     {1, 1, 3, 17, 3},
     1,
     2,
     1,
     3,
     3,
     {0, 0, 0, 0},
     {1, 2},
     {1, 1},
     true,
     false,
     nullptr},
    {"dilation", {2, 2, 12, 11, 3}, 1, 3, 2, 3, 3, {2, 2, 2, 2}, {1, 2}, {2, 3}, true, false, nullptr},
    {"pointwise", {3, 5, 4, 3, 3}, 1, 7, 5, 1, 1, {0, 0, 0, 0}, {1, 1}, {1, 1}, true, false, nullptr},
    {"pointwise ignores dilation", {1, 4, 3, 3, 3}, 1, 2, 4, 1, 1, {0, 0, 0, 0}, {1, 1}, {2, 2}, false, false, nullptr},
    {"1x1 with stride copies", {1, 4, 5, 5, 3}, 1, 2, 4, 1, 1, {0, 0, 0, 0}, {2, 2}, {1, 1}, true, false, nullptr},
    {"groups", {2, 6, 5, 5, 3}, 3, 4, 2, 3, 3, {1, 1, 1, 1}, {1, 1}, {1, 1}, true, false, nullptr},
    {"pointwise groups", {2, 6, 5, 5, 3}, 2, 4, 3, 1, 1, {0, 0, 0, 0}, {1, 1}, {1, 1}, true, false, nullptr},
    {"depthwise", {1, 7, 6, 5, 3}, 7, 1, 1, 3, 3, {1, 1, 1, 1}, {1, 1}, {1, 1}, true, false, nullptr},
    {"one group's weights for all", {2, 6, 5, 5, 3}, 3, 2, 2, 3, 3, {1, 0, 0, 1}, {1, 1}, {1, 1}, true, true, nullptr},
    {"truncated extents", {1, 1, 5, 5, 3}, 1, 1, 1, 2, 2, {0, 0, 0, 0}, {2, 2}, {1, 1}, false, false, nullptr},
    {"negative padding crops", {1, 2, 8, 8, 3}, 1, 3, 2, 3, 3, {-1, -2, -1, 0}, {1, 1}, {1, 1}, true, false, nullptr},
    {"a window wider than a row", {1, 1, 3, 3, 3}, 1, 2, 1, 5, 7, {3, 3, 4, 4}, {1, 1}, {1, 1}, true, false, nullptr},
    {"no samples", {0, 3, 5, 5, 3}, 1, 2, 3, 3, 3, {1, 1, 1, 1}, {1, 1}, {1, 1}, true, false, nullptr},
    {"four threads",
     {1, 3, 9, 9, 3},
     1,
     10,
     3,
     3,
     3,
     {1, 1, 1, 1},
     {1, 1},
     {1, 1},
     true,
     false,
     "num_threads=4, gemm_thresh=1"},
};

TEST(Convolution, EqualsTheDirectSums) {
    Values values(7);
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.claim);
        OwnedWeights weights(c.groups, c.out, c.inPerGroup, c.kernelH, c.kernelW, c.bias, values, c.shared);
        const Plain x{c.in, values.reals(static_cast<std::size_t>(c.in.n) * c.in.c * c.in.h * c.in.w)};
        const Plain expected = plain::convolve(x, c.padding, c.stride, c.dilation, weights.get());

        Net net(c.cfg);
        nolk::TensorX* y = net->convolve(net.input(c.in, x.values), c.padding, c.stride, c.dilation, weights.get());
        const nolk::TensorShape shape = net->shapeOf(y);
        EXPECT_EQ(shape.c, expected.shape.c);
        EXPECT_EQ(shape.h, expected.shape.h);
        EXPECT_EQ(shape.w, expected.shape.w);
        // The matrix product sums in its own order; sums have at most 35 products here.
        expectClose(net.run({y})[0], expected.values, 1e-5f);

        std::vector<float> out(expected.values.size());
        Plain copy = x;
        RawConvolutionLayer layer({c.in, copy.values.data()}, {expected.shape, out.data()}, c.padding, c.stride,
                                  c.dilation, weights.get(), 1, 0);
        layer.algo();
        expectSameBits(out, expected.values);
    }
}

TEST(Convolution, ZeroStrideGivesOnePosition) {
    Values values(8);
    OwnedWeights weights(1, 2, 1, 3, 3, false, values);
    const Plain x{{1, 1, 5, 5, 3}, values.reals(25)};
    Net net;
    nolk::TensorX* y = net->convolve(net.input(x.shape, x.values), {1, 1, 1, 1}, {0, 0}, {1, 1}, weights.get());
    const Plain expected = plain::convolve(x, {1, -2, 1, -2}, {1, 1}, {1, 1}, weights.get());
    expectClose(net.run({y})[0], {expected.values[0], expected.values[expected.values.size() / 2]}, 1e-5f);
}

TEST(Convolution, EmptyKernelLeavesTheBias) {
    Values values(9);
    OwnedWeights weights(1, 2, 1, 0, 1, true, values);
    Net net;
    nolk::TensorX* y = net->convolve(net.input({1, 1, 2, 2, 3}, values.reals(4)), {}, {1, 1}, {1, 1}, weights.get());
    ASSERT_EQ(net->shapeOf(y).h, 3);
    const std::vector<float> out = net.run({y})[0];
    for (std::size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i], weights.bias()[i / (out.size() / 2)]);
}

void buildWith(nolk::TensorShape in, nolk::Weights weights, nolk::Padding padding = {}) {
    Net net;
    net.build({net->convolve(net.input(in, {}), padding, {1, 1}, {1, 1}, weights)});
}

TEST(Convolution, WeightsThatDoNotFitAreRefused) {
    Values values(10);
    OwnedWeights weights(1, 2, 6, 3, 3, true, values);
    try {
        buildWith({1, 4, 5, 5, 3}, weights.get());
        FAIL() << "built";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "convolve: weights expect 6 input channels, input has 4");
    }

    nolk::Weights w = weights.get();
    w.weight = nullptr;
    EXPECT_NO_THROW(buildWith({1, 6, 2, 2, 3}, w));  // computes nothing
    EXPECT_THROW(buildWith({1, 6, 5, 5, 3}, w), std::invalid_argument);
    w = weights.get();
    w.groups = -1;
    w.outChannels = -2;
    EXPECT_THROW(buildWith({1, 6, 5, 5, 3}, w), std::invalid_argument);
    w = weights.get();
    w.outChannels = w.inChannels = 1 << 15;  // nine times 2^30 weights
    EXPECT_THROW(buildWith({1, 6, 5, 5, 3}, w), std::invalid_argument);
    EXPECT_THROW(buildWith({1, 6, 5, 5, 3}, weights.get(), {30000, 0, 30000, 0}), std::invalid_argument);
}

}  // namespace
