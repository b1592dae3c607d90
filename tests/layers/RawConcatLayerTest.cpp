#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

Record concat(int axis) {
    return [axis](Recording& r) {
        return r->concat(r.x.data(), static_cast<int>(r.x.size()), static_cast<nolk::Axis>(axis));
    };
}

TEST(RawConcatLayer, PutsInputsBehindOneAnotherOnEveryAxis) {
    for (Shape shape : {Shape{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 1, 7, 2, 3}, {2, 5, 1, 1, 1}})
        for (int axis = -4; axis < 4; ++axis) {
            const int index = axis < 0 ? axis + 4 : axis;
            if (shape.dims == 1 && index > 1) continue;
            std::vector<Shape> in;
            for (const int extent : {1, 3, 0, 2}) {
                int* const extents[] = {&shape.n, &shape.c, &shape.h, &shape.w};
                *extents[index] = extent;
                in.push_back(shape);
            }
            SCOPED_TRACE(axis);
            expectReference(in, concat(axis));
        }
}

TEST(RawConcatLayer, AnUnknownAxisIsReportedWhenItRuns) {
    testing::internal::CaptureStdout();
    expectAccepted({{1, 2, 1, 1, 3}, {1, 2, 1, 1, 3}}, concat(4));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Valid axis in concat run:4\n");
}

TEST(RawConcatLayer, RefusesExtentsThatWouldLeaveATensor) {
    const struct {
        Shape a, b;
        int axis;
        bool refused;
    } cases[] = {
        {{1, 1, 1, 1, 3}, {1, 2, 2, 2, 3}, 0, true},  {{1, 2, 2, 2, 3}, {1, 1, 1, 1, 3}, 0, false},
        {{1, 2, 2, 2, 3}, {1, 3, 1, 2, 3}, 1, true},  {{1, 2, 2, 2, 3}, {1, 3, 3, 3, 3}, 1, false},
        {{2, 1, 2, 2, 3}, {1, 1, 2, 2, 3}, 1, true},  {{1, 2, 2, 2, 3}, {1, 2, 2, 3, 3}, 2, true},
        {{1, 2, 2, 2, 3}, {1, 2, 1, 1, 3}, 2, false}, {{1, 2, 2, 2, 3}, {2, 2, 2, 2, 3}, 3, true},
        {{1, 2, 2, 2, 3}, {1, 2, 3, 2, 3}, 3, true},  {{1, 4, 1, 1, 1}, {1, 4, 1, 1, 1}, 2, true},
        {{1, 4, 1, 1, 1}, {1, 4, 1, 1, 1}, -1, true}, {{1, 4, 2, 2, 1}, {1, 4, 2, 2, 1}, 0, true},
        {{1, 0, 2, 2, 3}, {1, 1, 2, 2, 3}, 2, true},  {{0, 2147483647, 1, 1, 3}, {0, 1, 1, 1, 3}, 1, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectRefused({c.a, c.b}, c.refused ? "concat: extents" : nullptr, concat(c.axis));
    }
}

TEST(RawConcatLayer, NoInputIsFatal) {
    Net net;
    EXPECT_EXIT(net->concat(nullptr, 2, nolk::Axis::c), testing::ExitedWithCode(1), "inputs empty");
}

}  // namespace
