#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(RawDeConvolutionLayer, ScattersEveryInputThroughTheKernel) {
    const struct {
        Shape in;
        int outChannels;
        nolk::DimsHW kernel, stride, dilation = {1, 1};
        nolk::Padding padding = {};
        int moreChannels = 0;
    } cases[] = {
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
        {{1, 2, 3, 40, 3}, 2, {1, 64}, {1, 1}},  // the kernel is wider than the input
        {{1, 2, 4, 9, 3}, 2, {0, 3}, {2, 2}},
        {{1, 0, 4, 9, 3}, 2, {3, 3}, {2, 2}},
        {{0, 2, 4, 9, 3}, 2, {3, 3}, {2, 2}},
        {{1, 2, 0, 9, 3}, 2, {3, 3}, {1, 1}},
        {{1, 2, 3, 3, 3}, 2, {2, 2}, {2, 2}, {1, 1}, {}, 1},  // weights for more channels
    };
    for (const auto& c : cases)
        for (const bool bias : {false, true})
            for (const bool shared : {false, true}) {
                SCOPED_TRACE(&c - cases);
                expectReference({c.in}, [&](Recording& r) {
                    const int channels = c.in.c + c.moreChannels;
                    return r->deConvolve(r.x[0], c.padding, c.stride, c.dilation,
                                         r.weights(1, c.outChannels, channels, c.kernel.h, c.kernel.w, bias, shared));
                });
            }
}

TEST(RawDeConvolutionLayer, RefusesWhatWouldLeaveItsTensors) {
    const struct {
        int groups, outChannels, inChannels, kernel;
        bool weight;
        const char* text;  // null: accepted, and all is zero
    } cases[] = {{2, 1, 2, 2, true, "deConvolve: groups must be 1, are 2"},
                 {1, 2, 3, 2, true, "deConvolve: weights expect 3 input channels, input has 4"},
                 {1, 2, 4, -1, true, "must not be negative"},
                 {1, 2, 4, 2, false, "deConvolve: weights must not be null"},
                 {1, 1 << 15, 1 << 15, 128, true, "must hold at most 2^31 - 1 floats"},
                 {1 << 16, 1 << 16, 4, 2, true, "output channels must fit 32 bits"},
                 {0, 2, 4, 2, false, nullptr},
                 {-1, -2, 4, 2, false, nullptr}};
    for (const auto& c : cases) {
        std::vector<float> w(64, 1.0f);
        const nolk::Weights weights{
            c.groups, c.outChannels, c.inChannels, c.kernel, c.kernel, false, c.weight ? w.data() : nullptr, w.data()};
        const auto record = [&](Recording& r) { return r->deConvolve(r.x[0], {}, {2, 2}, {1, 1}, weights); };
        SCOPED_TRACE(&c - cases);
        expectRefused({{1, 4, 5, 5, 3}}, c.text, record);
        if (c.text) continue;
        Net net;
        Recording recording(*net.operator->(), {net.input({1, 4, 5, 5, 3}, Values(1).reals(100))});
        const auto out = net.run({record(recording)})[0];
        EXPECT_EQ(out, std::vector<float>(out.size(), 0.0f));
    }
}

}  // namespace
