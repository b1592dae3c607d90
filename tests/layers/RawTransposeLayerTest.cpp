#include <gtest/gtest.h>

#include <algorithm>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/values.h"

namespace {

TEST(RawTransposeLayer, MovesEveryElementForAllPermutationsAndShapes) {
    const nolk::TensorShape shapes[] = {{1, 1, 1, 1, 3}, {1, 2, 3, 4, 3},  {2, 3, 4, 5, 3},   {3, 7, 1, 13, 3},
                                        {2, 5, 4, 1, 3}, {1, 19, 6, 9, 3}, {4, 17, 3, 16, 3}, {2, 0, 3, 4, 3}};
    for (const nolk::TensorShape& shape : shapes) {
        nolk::Perm perm;
        do {
            const auto x = Values(7).reals(reference::count(shape));
            Net net;
            const auto out = net.run({net->transpose(net.input(shape, x), perm)});
            const auto& p = perm.axes;
            SCOPED_TRACE(testing::Message() << p[0] << p[1] << p[2] << p[3] << " of c " << shape.c);
            expectSameBits(out[0], reference::transpose(shape, x, perm));
        } while (std::next_permutation(perm.axes, perm.axes + 4));
    }
}

TEST(RawTransposeLayer, AnAxisMayStandTwice) {
    const nolk::TensorShape shape{1, 2, 2, 3, 3};
    const auto x = Values(3).reals(12);
    Net net;
    auto* y = net->transpose(net.input(shape, x), {{0, 3, 2, 3}});
    EXPECT_EQ(net->shapeOf(y).c, 3);
    const auto out = net.run({y});
    // Channels fall on one another: the second, being read last, stays.
    for (int h = 0; h < 2; ++h)
        for (int w = 0; w < 3; ++w)
            EXPECT_EQ(out[0][reference::at({1, 3, 2, 3, 3}, 0, w, h, w)], x[reference::at(shape, 0, 1, h, w)]);
}

TEST(RawTransposeLayer, RefusesAxesThatDoNotExist) {
    for (const nolk::Perm& perm : {nolk::Perm{{0, 1, 2, 4}}, nolk::Perm{{-1, 1, 2, 3}}}) {
        Net net;
        expectRefused(net, net->transpose(net.input({1, 2, 3, 4, 3}, Values(1).reals(24)), perm), "transpose: axes");
    }
}

}  // namespace
