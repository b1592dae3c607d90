#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/values.h"

namespace {

TEST(RawConcatLayer, PutsInputsBehindOneAnotherOnEveryAxis) {
    const nolk::TensorShape shapes[] = {{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 1, 7, 2, 3}, {2, 5, 1, 1, 1}};
    const int extents[] = {1, 3, 0, 2};
    for (nolk::TensorShape shape : shapes)
        for (int axis = -4; axis < 4; ++axis) {
            const int index = axis < 0 ? axis + 4 : axis;
            if (shape.dims == 1 && index > 1) continue;
            Net net;
            std::vector<nolk::TensorX*> inputs;
            std::vector<nolk::TensorShape> in;
            std::vector<std::vector<float>> x;
            for (const int extent : extents) {
                int* const fields[] = {&shape.n, &shape.c, &shape.h, &shape.w};
                *fields[index] = extent;
                in.push_back(shape);
                x.push_back(Values(static_cast<std::uint32_t>(in.size())).reals(reference::count(shape)));
                inputs.push_back(net.input(shape, x.back()));
            }
            auto* y = net->concat(inputs.data(), 4, static_cast<nolk::Axis>(axis));
            const nolk::TensorShape out = net->shapeOf(y);
            EXPECT_EQ(out.dims, shape.dims);
            expectSameBits(net.run({y})[0], reference::concat(in, x, index, out));
        }
}

TEST(RawConcatLayer, AnUnknownAxisIsReportedWhenItRuns) {
    Net net;
    auto* x = net.input({1, 2, 1, 1, 3}, {1, 2});
    nolk::TensorX* twice[] = {x, x};
    auto* y = net->concat(twice, 2, static_cast<nolk::Axis>(4));
    EXPECT_EQ(net->shapeOf(y).c, 2);
    testing::internal::CaptureStdout();
    net.run({y});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Valid axis in concat run:4\n");
}

TEST(RawConcatLayer, RefusesExtentsThatWouldLeaveATensor) {
    struct Case {
        nolk::TensorShape a, b;
        int axis;
        bool refused;
    };
    const Case cases[] = {
        {{1, 1, 1, 1, 3}, {1, 2, 2, 2, 3}, 0, true},  {{1, 2, 2, 2, 3}, {1, 1, 1, 1, 3}, 0, false},
        {{1, 2, 2, 2, 3}, {1, 3, 1, 2, 3}, 1, true},  {{1, 2, 2, 2, 3}, {1, 3, 3, 3, 3}, 1, false},
        {{2, 1, 2, 2, 3}, {1, 1, 2, 2, 3}, 1, true},  {{1, 2, 2, 2, 3}, {1, 2, 2, 3, 3}, 2, true},
        {{1, 2, 2, 2, 3}, {1, 2, 1, 1, 3}, 2, false}, {{1, 2, 2, 2, 3}, {2, 2, 2, 2, 3}, 3, true},
        {{1, 2, 2, 2, 3}, {1, 2, 3, 2, 3}, 3, true},  {{1, 4, 1, 1, 1}, {1, 4, 1, 1, 1}, 2, true},
        {{1, 4, 1, 1, 1}, {1, 4, 1, 1, 1}, -1, true}, {{1, 4, 2, 2, 1}, {1, 4, 2, 2, 1}, 0, true},
        {{1, 0, 2, 2, 3}, {1, 1, 2, 2, 3}, 2, true},  {{0, 2147483647, 1, 1, 3}, {0, 1, 1, 1, 3}, 1, true},
    };
    for (const Case& c : cases) {
        Net net;
        nolk::TensorX* inputs[] = {net.input(c.a, Values(1).reals(reference::count(c.a))),
                                   net.input(c.b, Values(2).reals(reference::count(c.b)))};
        auto* y = net->concat(inputs, 2, static_cast<nolk::Axis>(c.axis));
        SCOPED_TRACE(&c - cases);
        if (c.refused)
            expectRefused(net, y, "concat: extents");
        else
            EXPECT_EQ(net.run({y}).size(), 1u);
    }
}

TEST(RawConcatLayer, ANullInputGivesNullAndNoInputIsFatal) {
    Net net;
    nolk::TensorX* inputs[] = {net.input({1, 1, 1, 1, 3}, {1}), nullptr};
    EXPECT_EQ(net->concat(inputs, 2, nolk::Axis::c), nullptr);
    EXPECT_EXIT(net->concat(inputs, 0, nolk::Axis::c), testing::ExitedWithCode(1), "inputs empty");
    EXPECT_EXIT(net->concat(nullptr, 2, nolk::Axis::c), testing::ExitedWithCode(1), "inputs empty");
}

}  // namespace
