#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/values.h"

namespace {

struct Arrays {
    Arrays(int directions, int inputs, int hidden) {
        const auto gates = static_cast<std::size_t>(4 * directions * hidden);
        w = Values(1).reals(gates * static_cast<std::size_t>(inputs));
        r = Values(2).reals(gates * static_cast<std::size_t>(hidden));
        b = Values(3).reals(2 * gates);
    }
    std::vector<float> w, r, b;
};

TEST(RawLstmLayer, RunsOverTimeInEitherOrBothDirections) {
    struct Case {
        int n, t, inputs, hidden;
    };
    const Case cases[] = {{1, 1, 1, 1}, {1, 3, 2, 2}, {2, 5, 7, 3}, {3, 4, 5, 17},
                          {1, 6, 0, 8}, {2, 0, 3, 2}, {1, 2, 3, 0}};
    for (const Case& c : cases)
        for (int direction = 0; direction < 3; ++direction)
            for (int bias = 0; bias < 3; ++bias) {
                const int d = direction == 2 ? 2 : 1;
                const nolk::TensorShape in{c.n, 1, c.t, c.inputs, 3};
                const auto x = Values(4).reals(reference::count(in));
                Arrays arrays(d, c.inputs, c.hidden);
                const nolk::LstmWeights weights{static_cast<nolk::Direction>(direction),
                                                d,
                                                c.inputs,
                                                c.hidden,
                                                arrays.w.data(),
                                                arrays.r.data(),
                                                bias == 0 ? nullptr : arrays.b.data(),
                                                bias != 1};
                Net net;
                auto* y = net->lstm(net.input(in, x), weights);
                EXPECT_EQ(net->shapeOf(y).w, d * c.hidden);
                const auto want = reference::lstm(in, x, weights);
                net.build({y});
                arrays = Arrays(0, 0, 0);  // the layer has its own copies
                SCOPED_TRACE(testing::Message() << "t " << c.t << " hidden " << c.hidden << " direction " << direction);
                expectSameBits(net.runAgain()[0], want);
                expectSameBits(net.runAgain()[0], want);  // no state is carried on
            }
}

TEST(RawLstmLayer, TheNumberOfDirectionsDecides) {
    const nolk::TensorShape in{1, 1, 3, 2, 3};
    const auto x = Values(4).reals(6);
    Arrays arrays(2, 2, 3);
    for (const nolk::Direction direction : {nolk::Direction::forward, nolk::Direction::backward}) {
        const nolk::LstmWeights weights{direction, 2, 2, 3, arrays.w.data(), arrays.r.data(), arrays.b.data(), true};
        Net net;
        expectSameBits(net.run({net->lstm(net.input(in, x), weights)})[0], reference::lstm(in, x, weights));
    }
    const nolk::LstmWeights both{nolk::Direction::both, 1, 2, 3, arrays.w.data(), arrays.r.data(), nullptr, true};
    Net net;
    expectSameBits(net.run({net->lstm(net.input(in, x), both)})[0], reference::lstm(in, x, both));
}

TEST(RawLstmLayer, OfSeveralChannelsOnlyTheFirstRowsAreComputed) {
    const nolk::TensorShape in{2, 3, 2, 2, 3};
    const auto x = Values(4).reals(24);
    Arrays arrays(1, 2, 3);
    const nolk::LstmWeights weights{nolk::Direction::forward, 1, 2, 3, arrays.w.data(), arrays.r.data(), nullptr, true};
    Net net;
    auto out = net.run({net->lstm(net.input(in, x), weights)})[0];
    out.resize(12);
    expectSameBits(out, reference::lstm({2, 1, 2, 2, 3}, x, weights));
}

// Steps lie as many floats apart as the weights have inputs, whatever the rows of the tensor are.
TEST(RawLstmLayer, RowsNeedNotBeAsWideAsTheWeights) {
    const auto x = Values(4).reals(24);
    Arrays arrays(1, 2, 3);
    const nolk::LstmWeights weights{nolk::Direction::forward, 1, 2, 3, arrays.w.data(), arrays.r.data(), nullptr, true};
    const auto want = reference::lstm({2, 1, 3, 2, 3}, x, weights);  // the first 12 values, two a step
    for (const nolk::TensorShape& in : {nolk::TensorShape{2, 1, 3, 4, 3}, {2, 4, 3, 1, 3}}) {
        Net net;
        auto out = net.run({net->lstm(net.input(in, x), weights)})[0];
        out.resize(want.size());
        expectSameBits(out, want);
    }
}

TEST(RawLstmLayer, RefusesWeightsThatDoNotFit) {
    Arrays arrays(2, 5, 4);
    struct Case {
        int directions, inputs, hidden;
        bool w, r;
        const char* text;
    };
    const Case cases[] = {
        {0, 4, 4, true, true, "lstm: directions"},        {3, 4, 4, true, true, "lstm: directions"},
        {-1, 4, 4, true, true, "lstm: directions"},       {1, 5, 4, true, true, "lstm: weights expect 5"},
        {1, 4, -4, true, true, "lstm: hidden size"},      {1, 4, 65536, true, true, "fewer than 2^31"},
        {2, 4, INT32_MAX, true, true, "fewer than 2^31"}, {1, 4, 4, false, true, "must not be null"},
        {1, 4, 4, true, false, "must not be null"}};
    for (const Case& c : cases) {
        const nolk::LstmWeights weights{
            nolk::Direction::forward,        c.directions, c.inputs, c.hidden, c.w ? arrays.w.data() : nullptr,
            c.r ? arrays.r.data() : nullptr, nullptr,      true};
        Net net;
        expectRefused(net, net->lstm(net.input({1, 1, 2, 4, 3}, Values(1).reals(8)), weights), c.text);
    }
}

}  // namespace
