#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

using nolk::BasicOp;

Record reduce(const Shape& out, BasicOp op) {
    return [=](Recording& r) { return r->reduce(r.x[0], out, op); };
}

TEST(RawReductionLayer, ReducesEveryCombinationOfDimensions) {
    const Shape shapes[] = {{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3},  {3, 7, 1, 13, 3},
                            {1, 5, 9, 1, 3}, {2, 19, 1, 1, 1}, {2, 3, 17, 33, 3}};
    for (const Shape& in : shapes)
        for (int reduced = 0; reduced < 8; ++reduced)
            for (int op = 0; op < 4; ++op) {
                Shape out = in;
                if (reduced & 1) out.c = 1;
                if (reduced & 2) out.h = 1;
                if (reduced & 4) out.w = 1;
                SCOPED_TRACE(testing::Message() << "c " << in.c << " reduced " << reduced << " op " << op);
                expectReference({in}, reduce(out, static_cast<BasicOp>(op)));
            }
}

TEST(RawReductionLayer, WithoutElementsTheResultIsNaN) {
    expectReference({{2, 1, 0, 3, 3}}, reduce({2, 1, 1, 1, 3}, BasicOp::mean));
}

TEST(RawReductionLayer, RefusesShapesThatItWouldLeave) {
    const struct {
        Shape in, out;
        bool refused;
    } cases[] = {{{2, 3, 4, 5, 3}, {1, 1, 1, 1, 3}, true},  {{2, 3, 4, 5, 3}, {3, 1, 1, 1, 3}, false},
                 {{1, 3, 4, 5, 3}, {1, 2, 1, 1, 3}, true},  {{1, 3, 4, 5, 3}, {1, 5, 1, 1, 3}, false},
                 {{1, 3, 4, 5, 3}, {1, 0, 4, 5, 3}, true},  {{1, 3, 4, 5, 3}, {1, 2, 4, 5, 3}, false},
                 {{1, 0, 4, 5, 3}, {1, 1, 4, 5, 3}, true},  {{0, 3, 4, 5, 3}, {0, 1, 4, 5, 3}, false},
                 {{1, 3, 4, 5, 3}, {1, 1, 1, -1, 3}, true}, {{4, 3, 0, 2, 3}, {1, 1, 1, 1, 3}, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectRefused({c.in}, c.refused ? "reduce: " : nullptr, reduce(c.out, BasicOp::sum));
    }
}

TEST(RawReductionLayer, AnUnknownOperatorIsHarmless) {
    expectAccepted({{1, 2, 1, 1, 3}}, reduce({1, 1, 1, 1, 3}, static_cast<BasicOp>(4)));
}

}  // namespace
