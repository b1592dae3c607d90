#include <gtest/gtest.h>

#include <climits>

#include "layers/RawSliceLayerFactory.h"
#include "support/expectReference.h"

namespace {

Record slice(const nolk::SlicePos& pos) {
    return [=](Recording& r) { return r->slice(r.x[0], pos); };
}

TEST(RawSliceLayer, TakesEveryIndexBelowTheEndOnEveryAxis) {
    const nolk::SlicePos positions[] = {{0, 0, 1, 1}, {0, 0, 5, 2},       {0, -5, 100, 1},
                                        {0, 1, 3, 1}, {0, 1, 99, 3},      {0, 0, 3, 9},
                                        {0, 2, 2, 1}, {0, 0, INT_MAX, 2}, {0, 0, 5, INT_MAX}};
    for (const Shape& in : {Shape{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 7, 5, 11, 3}, {2, 9, 1, 1, 1}, {3, 4, 2, 3, 1}})
        for (nolk::SlicePos pos : positions)
            for (pos.axis = -4; pos.axis < 4; ++pos.axis) {
                const int extents[] = {in.n, in.c, in.h, in.w};
                if (std::min(pos.end, extents[(pos.axis + 4) % 4]) < pos.start) continue;
                SCOPED_TRACE(testing::Message() << "c " << in.c << " axis " << pos.axis << " " << pos.start << ":"
                                                << pos.end << ":" << pos.step);
                expectReference({in}, slice(pos));
            }
}

TEST(RawSliceLayer, StoresTheRestBeyondTheTruncatedExtent) {
    const struct {
        Shape in;
        nolk::SlicePos pos;
        int stored;
    } cases[] = {{{1, 1, 2, 5, 3}, {3, 0, 5, 2}, 5},
                 {{2, 5, 2, 3, 3}, {1, 0, 5, 2}, 30},
                 {{2, 2, 2, 2, 3}, {3, 0, 1, 2}, 1},
                 {{2, 4, 3, 1, 1}, {2, 0, 2, 1}, 9},
                 {{1, 1, 1, 6, 3}, {3, 0, 6, 2}, 3}};
    for (const auto& c : cases) {
        nolk::TensorX x(c.in, false);
        RawSliceLayerFactory factory(&x, c.pos);
        factory.connect();
        EXPECT_EQ(factory.output()->rawTensor->size, c.stored);
    }
}

TEST(RawSliceLayer, RefusesWhatWouldNeverEnd) {
    const struct {
        nolk::SlicePos pos;
        const char* text;  // null: accepted, and nothing is written
    } cases[] = {{{3, 0, 5, 0}, "slice: step"}, {{3, 0, 5, -1}, "slice: step"}, {{3, 3, 3, 0}, nullptr},
                 {{3, 5, 3, -1}, nullptr},      {{3, 5, 3, 9}, nullptr},        {{3, 4, 2, 1}, nullptr},
                 {{4, 0, 1, 1}, "slice: axis"}, {{-5, 0, 1, 1}, "slice: axis"}, {{3, INT_MAX, INT_MIN, 1}, nullptr},
                 {{3, 0, INT_MIN, -1}, nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectRefused({{1, 2, 3, 5, 3}}, c.text, slice(c.pos));
    }
}

}  // namespace
