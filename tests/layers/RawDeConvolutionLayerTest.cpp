#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

struct Case {
    nolk::TensorShape in;
    int outChannels;
    nolk::DimsHW kernel, stride, dilation = {1, 1};
    nolk::Padding padding = {};
};

TEST(RawDeConvolutionLayer, ScattersEveryInputThroughTheKernel) {
    const Case cases[] = {
        {{1, 1, 2, 2, 3}, 1, {2, 2}, {2, 2}},
        {{1, 1, 5, 7, 3}, 1, {3, 3}, {1, 1}, {1, 1}, {1, 1, 1, 1}},
        {{2, 3, 4, 5, 3}, 4, {3, 2}, {2, 3}, {1, 1}, {0, 1, 1, 0}},
        {{3, 5, 3, 97, 3}, 2, {4, 4}, {2, 2}, {1, 1}, {1, 1, 1, 1}},
        {{1, 2, 7, 41, 3}, 3, {3, 5}, {1, 1}, {1, 1}, {1, 1, 2, 2}},
        {{1, 2, 3, 23, 3}, 3, {2, 7}, {3, 2}, {1, 1}, {0, 0, 3, 4}},
        {{1, 2, 4, 9, 3}, 2, {2, 2}, {5, 4}},                            // gaps between the kernels
        {{1, 2, 4, 9, 3}, 2, {3, 3}, {1, 2}, {2, 3}},                    // dilation enlarges the output only
        {{1, 2, 4, 9, 3}, 2, {3, 3}, {1, 2}, {0, 0}},                    // and lets inputs drop out
        {{1, 2, 4, 9, 3}, 2, {3, 3}, {1, 1}, {1, 1}, {-2, -1, -3, -1}},  // zeros around
        {{1, 2, 4, 9, 3}, 2, {3, 4}, {0, 0}},
        {{1, 2, 4, 9, 3}, 2, {3, 4}, {-1, -1}, {9, 9}},
        {{1, 2, 4, 9, 3}, 2, {3, 4}, {-2, 2}, {9, 1}},
        {{1, 2, 4, 9, 3}, 2, {3, 4}, {2, -2}, {1, 9}},
        {{1, 2, 3, 40, 3}, 2, {1, 64}, {1, 1}},  // the kernel is wider than the input
        {{1, 2, 4, 9, 3}, 2, {0, 3}, {2, 2}},
        {{1, 0, 4, 9, 3}, 2, {3, 3}, {2, 2}},
        {{0, 2, 4, 9, 3}, 2, {3, 3}, {2, 2}},
        {{1, 2, 0, 9, 3}, 2, {3, 3}, {1, 1}},
    };
    for (const Case& c : cases)
        for (const bool special : {false, true})
            for (const bool bias : {false, true}) {
                const auto size = reference::count(c.in);
                const auto x = special ? valuesWithSpecials(1, size) : Values(1).reals(size);
                const auto taps = static_cast<std::size_t>(c.kernel.h * c.kernel.w);
                auto w = Values(2).reals(static_cast<std::size_t>(c.in.c * c.outChannels) * taps);
                auto b = Values(3).reals(static_cast<std::size_t>(c.outChannels));
                const nolk::Weights weights{1,          c.outChannels, c.in.c,   c.kernel.h,
                                            c.kernel.w, special,       w.data(), bias ? b.data() : nullptr};
                Net net;
                auto* y = net->deConvolve(net.input(c.in, x), c.padding, c.stride, c.dilation, weights);
                const nolk::TensorShape out = net->shapeOf(y);
                SCOPED_TRACE(testing::Message() << "case " << &c - cases << " out " << out.h << "x" << out.w);
                ASSERT_TRUE(out.h >= 0 && out.w >= 0);
                expectSameBits(net.run({y})[0], reference::deConvolve(c.in, x, c.padding, c.stride, weights, out));
            }
}

TEST(RawDeConvolutionLayer, AnInputMayHaveFewerChannelsThanTheWeights) {
    const nolk::TensorShape in{1, 2, 3, 3, 3};
    const auto x = Values(1).reals(18);
    auto w = Values(2).reals(3 * 2 * 4);
    const nolk::Weights weights{1, 2, 3, 2, 2, false, w.data(), nullptr};
    Net net;
    auto* y = net->deConvolve(net.input(in, x), {}, {2, 2}, {1, 1}, weights);
    const nolk::TensorShape out = net->shapeOf(y);
    expectSameBits(net.run({y})[0], reference::deConvolve(in, x, {}, {2, 2}, weights, out));
}

TEST(RawDeConvolutionLayer, RefusesWhatWouldLeaveItsTensors) {
    struct Refusal {
        int groups, outChannels, inChannels, kernelH, kernelW;
        bool weight;
        const char* text;  // null: accepted
    };
    const Refusal cases[] = {{2, 1, 2, 2, 2, true, "deConvolve: groups must be 1, are 2"},
                             {1, 2, 3, 2, 2, true, "deConvolve: weights expect 3 input channels, input has 4"},
                             {1, 2, 4, -1, -1, true, "must not be negative"},
                             {1, 2, 4, 2, 2, false, "deConvolve: weights must not be null"},
                             {0, 2, 4, 2, 2, false, nullptr},
                             {-1, -2, 4, 2, 2, false, nullptr}};
    for (const Refusal& c : cases) {
        auto w = Values(2).reals(64);
        const nolk::Weights weights{
            c.groups, c.outChannels, c.inChannels, c.kernelH, c.kernelW, false, c.weight ? w.data() : nullptr,
            w.data()};
        Net net;
        auto* x = net.input({1, 4, 5, 5, 3}, Values(1).reals(100));
        auto* y = net->deConvolve(x, {}, {2, 2}, {1, 1}, weights);
        SCOPED_TRACE(&c - cases);
        if (c.text) {
            expectRefused(net, y, c.text);
            continue;
        }
        const auto out = net.run({y})[0];
        EXPECT_EQ(out, std::vector<float>(out.size(), 0.0f));
    }
}

}  // namespace
