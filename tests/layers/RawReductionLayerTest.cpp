#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

const float kNaN = std::nanf("");

TEST(RawReductionLayer, ReducesEveryCombinationOfDimensions) {
    const nolk::TensorShape shapes[] = {{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3},  {3, 7, 1, 13, 3},
                                        {1, 5, 9, 1, 3}, {2, 19, 1, 1, 1}, {2, 3, 17, 33, 3}};
    for (const nolk::TensorShape& in : shapes)
        for (int reduced = 0; reduced < 8; ++reduced)
            for (int op = 0; op < 4; ++op)
                for (const bool special : {false, true}) {
                    const auto size = reference::count(in);
                    const auto x = special ? valuesWithSpecials(3, size) : Values(3).reals(size);
                    nolk::TensorShape out = in;
                    if (reduced & 1) out.c = 1;
                    if (reduced & 2) out.h = 1;
                    if (reduced & 4) out.w = 1;
                    Net net;
                    const auto basicOp = static_cast<nolk::BasicOp>(op);
                    const auto got = net.run({net->reduce(net.input(in, x), out, basicOp)});
                    SCOPED_TRACE(testing::Message() << "c " << in.c << " reduced " << reduced << " op " << op);
                    expectSameBits(got[0], reference::reduce(in, x, out, basicOp));
                }
}

TEST(RawReductionLayer, NaNIsIgnoredOrStartsTheSumAnew) {
    struct Case {
        std::vector<float> row;
        nolk::BasicOp op;
        float want;
    };
    const Case cases[] = {{{kNaN, 1, 2}, nolk::BasicOp::maximum, 2},         {{1, 2, kNaN}, nolk::BasicOp::maximum, 2},
                          {{kNaN, 1, 2}, nolk::BasicOp::minimum, 1},         {{1, kNaN, 2}, nolk::BasicOp::sum, 2},
                          {{1, 2, kNaN}, nolk::BasicOp::sum, kNaN},          {{1, kNaN, 6}, nolk::BasicOp::mean, 2},
                          {{kNaN, kNaN, kNaN}, nolk::BasicOp::maximum, kNaN}};
    for (const Case& c : cases) {
        Net net;
        expectSameBits(net.run({net->reduce(net.input({1, 1, 1, 3, 3}, c.row), {1, 1, 1, 1, 3}, c.op)})[0], {c.want});
    }
}

TEST(RawReductionLayer, WithoutElementsTheResultIsNaN) {
    Net net;
    const auto out = net.run({net->reduce(net.input({2, 1, 0, 3, 3}, {}), {2, 1, 1, 1, 3}, nolk::BasicOp::mean)});
    expectSameBits(out[0], {kNaN, kNaN});
}

TEST(RawReductionLayer, RefusesShapesThatItWouldLeave) {
    struct Case {
        nolk::TensorShape in, out;
        bool refused;
    };
    const Case cases[] = {{{2, 3, 4, 5, 3}, {1, 1, 1, 1, 3}, true},  {{2, 3, 4, 5, 3}, {3, 1, 1, 1, 3}, false},
                          {{1, 3, 4, 5, 3}, {1, 2, 1, 1, 3}, true},  {{1, 3, 4, 5, 3}, {1, 5, 1, 1, 3}, false},
                          {{1, 3, 4, 5, 3}, {1, 0, 4, 5, 3}, true},  {{1, 3, 4, 5, 3}, {1, 2, 4, 5, 3}, false},
                          {{1, 0, 4, 5, 3}, {1, 1, 4, 5, 3}, true},  {{0, 3, 4, 5, 3}, {0, 1, 4, 5, 3}, false},
                          {{1, 3, 4, 5, 3}, {1, 1, 1, -1, 3}, true}, {{4, 3, 0, 2, 3}, {1, 1, 1, 1, 3}, false}};
    for (const Case& c : cases) {
        Net net;
        auto* y = net->reduce(net.input(c.in, Values(1).reals(reference::count(c.in))), c.out, nolk::BasicOp::sum);
        SCOPED_TRACE(&c - cases);
        if (c.refused)
            expectRefused(net, y, "reduce: ");
        else
            EXPECT_EQ(net.run({y}).size(), 1u);
    }
}

TEST(RawReductionLayer, AnUnknownOperatorIsHarmless) {
    Net net;
    auto* y = net->reduce(net.input({1, 2, 1, 1, 3}, {1, 2}), {1, 1, 1, 1, 3}, static_cast<nolk::BasicOp>(4));
    EXPECT_EQ(net.run({y})[0].size(), 1u);
}

}  // namespace
