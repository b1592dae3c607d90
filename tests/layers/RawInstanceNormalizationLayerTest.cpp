#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

TEST(RawInstanceNormalizationLayer, NormalisesEveryPlaneInPlaceAndNot) {
    const nolk::TensorShape shapes[] = {
        {1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 7, 1, 13, 3}, {1, 2, 9, 3, 3}, {2, 3, 0, 3, 3}};
    for (const nolk::TensorShape& shape : shapes)
        for (const bool inPlace : {false, true})
            for (const float epsilon : {1e-5f, 0.0f}) {
                const auto size = reference::count(shape);
                auto x = epsilon > 0.0f ? Values(4).reals(size) : valuesWithSpecials(4, size);
                auto scale = Values(5).reals(static_cast<std::size_t>(shape.c) + 1);
                auto bias = Values(6).reals(static_cast<std::size_t>(shape.c));
                Net net;
                auto* a = net.input(shape, x);
                auto* y = net->instanceNormalization(a, {shape.c + 1, scale.data()}, {shape.c, bias.data()}, epsilon);
                const auto want = reference::instanceNormalize(shape, x, scale, bias, epsilon);
                scale.assign(scale.size(), 99.0f);  // the factory has its own copy
                const auto out = inPlace ? net.run({y}) : net.run({y, a});
                expectSameBits(out[0], want);
            }
}

TEST(RawInstanceNormalizationLayer, WithoutVectorsScaleIsOneAndBiasZero) {
    const nolk::TensorShape shape{2, 3, 4, 5, 3};
    const auto x = Values(7).reals(120);
    Net net;
    const auto out = net.run({net->instanceNormalization(net.input(shape, x), 0.01f)});
    expectSameBits(out[0], reference::instanceNormalize(shape, x, {1, 1, 1}, {0, 0, 0}, 0.01f));
}

TEST(RawInstanceNormalizationLayer, AConstantPlaneGivesTheBias) {
    float scale[] = {3.0f}, bias[] = {0.25f};
    Net net;
    auto* y = net->instanceNormalization(net.input({1, 1, 2, 2, 3}, {2, 2, 2, 2}), {1, scale}, {1, bias}, 1e-5f);
    expectSameBits(net.run({y})[0], std::vector<float>(4, 0.25f));
}

TEST(RawInstanceNormalizationLayer, RefusesVectorsWithoutAValueForEveryChannel) {
    float values[3] = {};
    const nolk::Vector three{3, values}, two{2, values}, null{3, nullptr}, negative{-1, values};
    for (const nolk::Vector& v : {two, null, negative})
        for (const bool scale : {true, false}) {
            Net net;
            auto* x = net.input({1, 3, 1, 1, 3}, {1, 2, 3});
            expectRefused(net, net->instanceNormalization(x, scale ? v : three, scale ? three : v, 0.0f),
                          "instanceNormalization: input has 3 channels");
        }
}

}  // namespace
