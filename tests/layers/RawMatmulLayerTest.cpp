#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

TEST(RawMatmulLayer, MultipliesPlaneByPlane) {
    struct Case {
        nolk::TensorShape a, b;
    };
    const Case cases[] = {{{1, 1, 1, 1, 3}, {1, 1, 1, 1, 3}},    {{1, 2, 3, 4, 3}, {1, 2, 4, 5, 3}},
                          {{2, 3, 5, 7, 3}, {2, 3, 7, 3, 3}},    {{1, 1, 9, 13, 3}, {1, 1, 13, 37, 3}},
                          {{2, 2, 4, 8, 3}, {3, 3, 9, 16, 3}},   {{1, 2, 3, 0, 3}, {1, 2, 0, 5, 3}},
                          {{1, 2, 17, 31, 3}, {1, 2, 31, 1, 3}}, {{1, 2, 3, 4, 3}, {1, 2, 4, 0, 3}},
                          {{2, 3, 3, 2, 3}, {4, 2, 3, 2, 3}},    {{1, 1, 4, 2, 3}, {1, 2, 1, 4, 3}}};
    for (const Case& c : cases)
        for (const bool special : {false, true}) {
            const auto size = reference::count(c.a);
            const auto a = special ? valuesWithSpecials(1, size) : Values(1).reals(size);
            const auto b = Values(2).reals(reference::count(c.b));
            Net net;
            const auto out = net.run({net->matMul(net.input(c.a, a), net.input(c.b, b))});
            expectSameBits(out[0], reference::matMul(c.a, a, c.b, b));
        }
}

TEST(RawMatmulLayer, RefusesASecondInputThatIsTooSmall) {
    for (const nolk::TensorShape& b :
         {nolk::TensorShape{1, 3, 5, 6, 3}, nolk::TensorShape{2, 2, 5, 6, 3}, nolk::TensorShape{2, 3, 4, 6, 3}}) {
        Net net;
        auto* a = net.input({2, 3, 4, 5, 3}, Values(1).reals(120));
        expectRefused(net, net->matMul(a, net.input(b, Values(1).reals(reference::count(b)))),
                      "matMul: second input must have 2 samples, 3 channels, 5 rows");
    }
    Net net;
    auto* x = net.input({1, 1, 1, 1, 3}, {1});
    EXPECT_EQ(net->matMul(x, nullptr), nullptr);
    EXPECT_EQ(net->matMul(nullptr, x), nullptr);
}

}  // namespace
