#include <gtest/gtest.h>

#include <algorithm>

#include "support/expectReference.h"

namespace {

Record transpose(const nolk::Perm& perm) {
    return [=](Recording& r) { return r->transpose(r.x[0], perm); };
}

TEST(RawTransposeLayer, MovesEveryElementForAllPermutationsAndShapes) {
    const Shape shapes[] = {{1, 1, 1, 1, 3}, {1, 2, 3, 4, 3},  {2, 3, 4, 5, 3},   {3, 7, 1, 13, 3},
                            {2, 5, 4, 1, 3}, {1, 19, 6, 9, 3}, {4, 17, 3, 16, 3}, {2, 0, 3, 4, 3}};
    for (const Shape& shape : shapes) {
        nolk::Perm perm;
        do {
            const auto& p = perm.axes;
            SCOPED_TRACE(testing::Message() << p[0] << p[1] << p[2] << p[3] << " of c " << shape.c);
            expectReference({shape}, transpose(perm));
        } while (std::next_permutation(perm.axes, perm.axes + 4));
    }
}

TEST(RawTransposeLayer, AnAxisMayStandTwice) { expectReference({{1, 2, 2, 3, 3}}, transpose({{0, 3, 2, 3}})); }

TEST(RawTransposeLayer, RefusesAxesThatDoNotExist) {
    for (const nolk::Perm& perm : {nolk::Perm{{0, 1, 2, 4}}, {{-1, 1, 2, 3}}})
        expectRefused({{1, 2, 3, 4, 3}}, "transpose: axes", transpose(perm));
}

}  // namespace
