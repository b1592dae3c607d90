#include <gtest/gtest.h>

#include <stdexcept>

#include "support/Net.h"
#include "support/OwnedWeights.h"
#include "support/plain.h"

namespace {

struct Case {
    const char* claim;
    nolk::TensorShape in;
    int groups, out, inPerGroup;
    bool bias, shared;
};

const Case kCases[] = {
    {"plain", {2, 8, 1, 1, 1}, 1, 4, 8, true, true},
    {"without bias", {3, 5, 1, 1, 3}, 1, 7, 5, false, true},
    {"groups use the first group's weights", {2, 8, 1, 1, 1}, 2, 3, 4, true, true},
    {"also when every group has its own", {2, 8, 1, 1, 1}, 2, 3, 4, true, false},
    {"only the first values of planes take part", {1, 4, 2, 2, 3}, 1, 3, 4, true, true},
    {"fewer channels than weights", {2, 5, 1, 1, 1}, 1, 3, 6, true, true},
    {"no samples", {0, 8, 1, 1, 1}, 1, 4, 8, true, true},
};

TEST(FullConnection, EqualsTheSums) {
    Values values(21);
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.claim);
        OwnedWeights weights(c.groups, c.out, c.inPerGroup, 1, 1, c.bias, values, c.shared);
        const plain::Plain x{c.in, values.reals(static_cast<std::size_t>(c.in.n) * c.in.c * c.in.h * c.in.w)};
        Net net("num_threads=3, gemm_thresh=0");
        nolk::TensorX* y = net->fullConnect(net.input(c.in, x.values), weights.get());
        EXPECT_EQ(net->shapeOf(y).dims, 1);
        // The matrix product sums in its own order; sums have at most 8 products.
        expectClose(net.run({y})[0], plain::fullConnect(x, weights.get()).values, 1e-6f);
    }
}

TEST(FullConnection, WeightsThatDoNotFitAreRefused) {
    Values values(22);
    OwnedWeights weights(1, 3, 4, 1, 1, true, values);
    for (const nolk::TensorShape& in : {nolk::TensorShape{1, 5, 1, 1, 1}, {1, 4, 0, 1, 3}}) {
        Net net;
        EXPECT_THROW(net.build({net->fullConnect(net.input(in, {}), weights.get())}), std::invalid_argument);
    }
    nolk::Weights none = weights.get();
    none.groups = 0;
    Net net;
    EXPECT_NO_THROW(net.build({net->fullConnect(net.input({1, 4, 1, 1, 1}, {}), none)}));
    // Where none is read, none is needed: without samples, and without inputs, which leaves the bias.
    none = weights.get();
    none.weight = nullptr;
    Net unread;
    const auto out = unread.run({unread->fullConnect(unread.input({0, 4, 1, 1, 1}, {}), none),
                                 unread->fullConnect(unread.input({1, 0, 1, 1, 1}, {}), none)});
    EXPECT_EQ(out[1], weights.bias());
}

}  // namespace
