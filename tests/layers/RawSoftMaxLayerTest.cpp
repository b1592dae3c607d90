#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

TEST(RawSoftMaxLayer, NormalisesEveryLineInPlaceAndNot) {
    const nolk::TensorShape shapes[] = {{1, 1, 1, 1, 3},  {2, 3, 4, 5, 3},  {3, 7, 1, 67, 3}, {1, 5, 13, 1, 3},
                                        {2, 10, 1, 1, 1}, {1, 3, 8, 17, 3}, {1, 0, 3, 3, 3},  {2, 3, 0, 3, 3}};
    for (const nolk::TensorShape& shape : shapes)
        for (const bool inPlace : {false, true})
            for (const bool special : {false, true})
                for (int axis = 1; axis < 4; ++axis) {
                    const auto size = reference::count(shape);
                    const auto x = special ? valuesWithSpecials(4, size) : Values(4).reals(size);
                    Net net;
                    auto* a = net.input(shape, x);
                    auto* y = net->softmax(a, static_cast<nolk::Axis>(axis));
                    const auto out = inPlace ? net.run({y}) : net.run({y, a});
                    SCOPED_TRACE(testing::Message() << "c " << shape.c << " axis " << axis);
                    expectSameBits(out[0], reference::softmax(shape, x, axis));
                }
}

TEST(RawSoftMaxLayer, LargeValuesDoNotOverflow) {
    Net net;
    expectSameBits(net.run({net->softmax(net.input({1, 2, 1, 1, 3}, {1000, 1000}), nolk::Axis::c)})[0], {0.5f, 0.5f});
}

TEST(RawSoftMaxLayer, AnUnknownAxisIsReportedAndLeavesTheValues) {
    for (const int axis : {0, -1, 4}) {
        Net net;
        auto* y = net->softmax(net.input({1, 3, 1, 1, 3}, {1, 2, 3}), static_cast<nolk::Axis>(axis));
        testing::internal::CaptureStderr();
        expectSameBits(net.run({y})[0], {1, 2, 3});
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "unknown softmax axis: " + std::to_string(axis) + "\n");
    }
}

}  // namespace
