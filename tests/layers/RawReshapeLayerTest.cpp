#include <gtest/gtest.h>

#include "builder/TensorX.h"
#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/values.h"

namespace {

TEST(RawReshapeLayer, KeepsTheElementsUnderAnyShape) {
    const auto x = Values(5).reals(60);
    for (const nolk::TensorShape& shape : {nolk::TensorShape{2, 30, 1, 1, 1}, nolk::TensorShape{1, 3, 4, 5, 3}}) {
        Net net;
        const auto out =
            net.run({net->abs(net->reshape(net.input({1, 5, 4, 3, 3}, x), shape, nolk::TensorLayout::nchw))});
        for (std::size_t i = 0; i < reference::count(shape); ++i) EXPECT_EQ(out[0][i], std::fabs(x[i]));
    }
}

TEST(RawReshapeLayer, SharesTheStorageAndGivesItRoomForTheLargerShape) {
    Net net;
    auto* x = net.input({1, 2, 3, 1, 3}, Values(1).reals(6));
    auto* y = net->reshape(x, {1, 100, 1, 1, 1}, nolk::TensorLayout::nchw);
    net->relu(y);
    auto raw = x->rawTensor;
    net.build({});
    EXPECT_EQ(raw->size, 100);
}

TEST(RawReshapeLayer, ReordersToChannelLastWhateverTheOutputsShape) {
    const nolk::TensorShape in{2, 3, 5, 7, 3};
    const auto x = Values(6).reals(210);
    for (const bool inputStays : {false, true}) {
        Net net;
        auto* a = net.input(in, x);
        auto* y = net->reshape(a, {1, 300, 1, 1, 1}, nolk::TensorLayout::nhwc);
        auto out = net.run(inputStays ? std::vector<nolk::TensorX*>{y, a} : std::vector<nolk::TensorX*>{y})[0];
        out.resize(210);
        expectSameBits(out, reference::transpose(in, x, {{0, 2, 3, 1}}));
    }
    Net net;
    expectRefused(net, net->reshape(net.input(in, x), {1, 209, 1, 1, 1}, nolk::TensorLayout::nhwc), "reshape: output");
}

}  // namespace
