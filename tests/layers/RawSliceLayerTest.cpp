#include <gtest/gtest.h>

#include <climits>

#include "layers/RawSliceLayerFactory.h"
#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/values.h"

namespace {

TEST(RawSliceLayer, TakesEveryIndexBelowTheEndOnEveryAxis) {
    const nolk::TensorShape shapes[] = {
        {1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 7, 5, 11, 3}, {2, 9, 1, 1, 1}, {3, 4, 2, 3, 1}};
    const nolk::SlicePos positions[] = {{0, 0, 1, 1}, {0, 0, 5, 2},       {0, -5, 100, 1},
                                        {0, 1, 3, 1}, {0, 1, 99, 3},      {0, 0, 3, 9},
                                        {0, 2, 2, 1}, {0, 0, INT_MAX, 2}, {0, 0, 5, INT_MAX}};
    for (const nolk::TensorShape& in : shapes)
        for (nolk::SlicePos pos : positions)
            for (int axis = -4; axis < 4; ++axis) {
                const auto x = Values(9).reals(reference::count(in));
                const int extents[] = {in.n, in.c, in.h, in.w};
                nolk::SlicePos normal = pos;
                pos.axis = axis;
                normal.axis = axis < 0 ? axis + 4 : axis;
                normal.start = std::max(normal.start, 0);
                normal.end = std::min(normal.end, extents[normal.axis]);
                if (normal.end < normal.start) continue;
                Net net;
                auto* a = net.input(in, x);
                auto* y = net->slice(a, pos);
                const nolk::TensorShape out = net->shapeOf(y);
                SCOPED_TRACE(testing::Message() << "c " << in.c << " axis " << axis << " " << pos.start << ":"
                                                << pos.end << ":" << pos.step);
                // The input, placed beside the output, must survive what is written behind it.
                const auto results = net.run({y, a});
                expectSameBits(results[1], x);
                const auto want = reference::slice(in, x, normal, out);
                if (reference::count(out) > 0 && normal.start < normal.end) expectSameBits(results[0], want);
            }
}

TEST(RawSliceLayer, DeclaresTheTruncatedExtentAndStoresTheRest) {
    struct Case {
        nolk::TensorShape in;
        nolk::SlicePos pos;
        int declared, stored;
    };
    const Case cases[] = {{{1, 1, 2, 5, 3}, {3, 0, 5, 2}, 4, 5},
                          {{2, 5, 2, 3, 3}, {1, 0, 5, 2}, 24, 30},
                          {{2, 2, 2, 2, 3}, {3, 0, 1, 2}, 0, 1},
                          {{2, 4, 3, 1, 1}, {2, 0, 2, 1}, 8, 9},
                          {{1, 1, 1, 6, 3}, {3, 0, 6, 2}, 3, 3}};
    for (const Case& c : cases) {
        nolk::TensorX x(c.in, false);
        RawSliceLayerFactory factory(&x, c.pos);
        factory.check();
        factory.connect();
        EXPECT_EQ(reference::count(factory.output()->shape), static_cast<std::size_t>(c.declared));
        EXPECT_EQ(factory.output()->rawTensor->size, c.stored);
    }
}

TEST(RawSliceLayer, RefusesWhatWouldNeverEnd) {
    struct Case {
        nolk::SlicePos pos;
        const char* text;  // null: accepted, and nothing is written
    };
    const Case cases[] = {
        {{3, 0, 5, 0}, "slice: step"}, {{3, 0, 5, -1}, "slice: step"}, {{3, 3, 3, 0}, nullptr},
        {{3, 5, 3, -1}, nullptr},      {{3, 5, 3, 9}, nullptr},        {{3, 4, 2, 1}, nullptr},
        {{4, 0, 1, 1}, "slice: axis"}, {{-5, 0, 1, 1}, "slice: axis"}, {{3, INT_MAX, INT_MIN, 1}, nullptr},
        {{3, 0, INT_MIN, -1}, nullptr}};
    for (const Case& c : cases) {
        Net net;
        auto* y = net->slice(net.input({1, 2, 3, 5, 3}, Values(1).reals(30)), c.pos);
        SCOPED_TRACE(&c - cases);
        if (c.text)
            expectRefused(net, y, c.text);
        else
            EXPECT_EQ(net.run({y}).size(), 1u);
    }
}

}  // namespace
