#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

const Record kMatMul = [](Recording& r) { return r->matMul(r.x[0], r.x[1]); };

TEST(RawMatmulLayer, MultipliesPlaneByPlane) {
    const std::vector<Shape> pairs[] = {{{1, 1, 1, 1, 3}, {1, 1, 1, 1, 3}},    {{1, 2, 3, 4, 3}, {1, 2, 4, 5, 3}},
                                        {{2, 3, 5, 7, 3}, {2, 3, 7, 3, 3}},    {{1, 1, 9, 13, 3}, {1, 1, 13, 37, 3}},
                                        {{2, 2, 4, 8, 3}, {3, 3, 9, 16, 3}},   {{1, 2, 3, 0, 3}, {1, 2, 0, 5, 3}},
                                        {{1, 2, 17, 31, 3}, {1, 2, 31, 1, 3}}, {{1, 2, 3, 4, 3}, {1, 2, 4, 0, 3}},
                                        {{2, 3, 3, 2, 3}, {4, 2, 3, 2, 3}},    {{1, 1, 4, 2, 3}, {1, 2, 1, 4, 3}}};
    for (const std::vector<Shape>& pair : pairs) {
        SCOPED_TRACE(&pair - pairs);
        expectReference(pair, kMatMul);
    }
}

TEST(RawMatmulLayer, RefusesASecondInputThatIsTooSmall) {
    for (const Shape& b : {Shape{1, 3, 5, 6, 3}, {2, 2, 5, 6, 3}, {2, 3, 4, 6, 3}})
        expectRefused({{2, 3, 4, 5, 3}, b}, "matMul: second input must have 2 samples, 3 channels, 5 rows", kMatMul);
}

}  // namespace
