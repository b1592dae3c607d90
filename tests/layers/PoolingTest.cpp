#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/plain.h"
#include "support/values.h"

namespace {

using plain::Plain;

struct Case {
    nolk::TensorShape in;
    nolk::DimsHW kernel;
    nolk::Padding padding;
    nolk::DimsHW stride;
};

const Case kCases[] = {
    {{1, 1, 4, 4, 3}, {2, 2}, {0, 0, 0, 0}, {2, 2}}, {{2, 3, 7, 5, 3}, {3, 3}, {1, 1, 1, 1}, {2, 2}},
    {{1, 2, 5, 7, 3}, {3, 2}, {2, 0, 0, 2}, {1, 3}}, {{1, 1, 1, 1, 3}, {1, 1}, {0, 0, 0, 0}, {1, 1}},
    {{1, 1, 3, 3, 3}, {2, 2}, {3, 0, 0, 0}, {1, 1}},  // the first windows lie wholly in the padding
    {{0, 2, 4, 4, 3}, {2, 2}, {0, 0, 0, 0}, {2, 2}},
};

TEST(Pooling, EqualsTheWindows) {
    Values values(3);
    for (const Case& c : kCases)
        for (const PoolingType type : {POOL_MAX, POOL_AVG}) {
            const Plain x{c.in, values.reals(static_cast<std::size_t>(c.in.n) * c.in.c * c.in.h * c.in.w)};
            Net net;
            nolk::TensorX* in = net.input(c.in, x.values);
            nolk::TensorX* y = type == POOL_AVG ? net->avgPool(in, c.kernel, c.padding, c.stride)
                                                : net->maxPool(in, c.kernel, c.padding, c.stride);
            expectSameBits(net.run({y})[0], plain::pool(x, type, c.kernel, c.padding, c.stride).values);
        }
}

TEST(Pooling, NanNeverBecomesAMaximum) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Net net;
    nolk::TensorX* x = net.input({1, 2, 1, 2, 3}, {nan, nan, nan, -3.0f});
    expectSameBits(net.run({net->maxPool(x, {1, 2}, {}, {1, 1})})[0], {-1.0e37f, -3.0f});
}

TEST(Pooling, StrangeParametersStayInside) {
    Net net;
    nolk::TensorX* x = net.input({1, 1, 3, 3, 3}, Values(1).reals(9));
    // Stride 0 gives one position; an empty window, or one wholly outside, has no maximum.
    auto out =
        net.run({net->maxPool(x, {3, 3}, {}, {0, 0}), net->maxPool(x, {0, 0}, {}, {1, 1}),
                 net->avgPool(x, {1, 1}, {9, 0, 0, 0}, {11, 3}), net->maxPool(x, {1, 1}, {-1, -1, -1, -1}, {1, 1})});
    EXPECT_EQ(out[0].size(), 1u);
    EXPECT_EQ(out[1], std::vector<float>(16, -1.0e37f));
    EXPECT_TRUE(std::isnan(out[2][0]));
    EXPECT_EQ(out[3].size(), 1u);
}

TEST(EmptyTensors, AreNotCountedThrough) {
    const int many = 2147483647;
    Values values(5);
    OwnedWeights weights(1, 1, 65535, many, 0, false, values);
    Net net;
    nolk::TensorX* x = net.input({many, many, 0, 1, 3}, {});
    nolk::TensorX* y = net.input({1, 1, 0, 1, 3}, {});
    nolk::TensorX* z = net.input({1, 65535, 1, 1, 3}, std::vector<float>(65535));
    const auto out = net.run({net->add(x, y), net->maxPool(x, {1, 1}, {}, {1, 1}), net->instanceNormalization(x, 0.1f),
                              net->convolve(z, {}, {1, 1}, {0, 1}, weights.get())});
    EXPECT_EQ(out[0].size(), 0u);
}

TEST(Padding, SurroundsEveryPlaneWithZeros) {
    Values values(4);
    for (const nolk::Padding p : {nolk::Padding{1, 2, 0, 3}, nolk::Padding{0, 0, 0, 0}, nolk::Padding{0, 1, 2, 0}})
        for (const nolk::TensorShape& in : {nolk::TensorShape{1, 1, 2, 2, 3}, {2, 3, 4, 5, 3}, {1, 2, 0, 3, 3}}) {
            const Plain x{in, values.reals(static_cast<std::size_t>(in.n) * in.c * in.h * in.w)};
            Net net;
            expectSameBits(net.run({net->pad(net.input(in, x.values), p)})[0], plain::pad(x, p).values);
        }
}

TEST(Padding, NegativeAmountsAreRefused) {
    Net net;
    nolk::TensorX* y = net->pad(net.input({1, 1, 4, 4, 3}, {}), {0, 0, -1, 0});
    EXPECT_THROW(net.build({y}), std::invalid_argument);
}

}  // namespace
