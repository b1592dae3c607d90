#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(RawSoftMaxLayer, NormalisesEveryLine) {
    const Shape shapes[] = {{1, 1, 1, 1, 3},  {2, 3, 4, 5, 3},  {3, 7, 1, 67, 3}, {1, 5, 13, 1, 3},
                            {2, 10, 1, 1, 1}, {1, 3, 8, 17, 3}, {1, 0, 3, 3, 3},  {2, 3, 0, 3, 3}};
    for (const Shape& shape : shapes)
        for (const nolk::Axis axis : {nolk::Axis::c, nolk::Axis::h, nolk::Axis::w}) {
            SCOPED_TRACE(testing::Message() << "c " << shape.c << " axis " << static_cast<int>(axis));
            expectReference({shape}, [=](Builder& b, Xs& x, Arrays&) { return b.softmax(x[0], axis); });
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
