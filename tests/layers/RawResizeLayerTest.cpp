#include "layers/RawResizeLayer.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/refusal.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

TEST(RawResizeLayer, CoefficientsFallWhereTheyShould) {
    struct Case {
        int in, out, transMode;
        std::vector<int> offsets;
        std::vector<float> weights;
    };
    const Case cases[] = {{2, 3, 1, {0, 0, 0}, {1, 0, 0.5f, 0.5f, 0, 1}},
                          {2, 4, 0, {0, 0, 0, 0}, {1, 0, 0.75f, 0.25f, 0.25f, 0.75f, 0, 1}},
                          {1, 2, 0, {-1, -1}, {0, 1, 0, 1}},
                          {4, 1, 1, {0}, {1, 0}},
                          {1, 1, 1, {-1}, {0, 1}}};
    for (const Case& c : cases) {
        std::vector<int> offsets(c.offsets.size());
        std::vector<float> weights(c.weights.size());
        RawResizeLayer::linear_coeffs(c.in, c.out, offsets.data(), weights.data(), c.transMode);
        EXPECT_EQ(offsets, c.offsets);
        expectSameBits(weights, c.weights);
    }
}

TEST(RawResizeLayer, InterpolatesOrPicksForAllExtents) {
    const int extents[][2] = {{1, 1}, {1, 3}, {4, 1}, {2, 2}, {3, 5}, {7, 13}, {16, 9}};
    for (const auto& from : extents)
        for (const auto& to : extents)
            for (const bool special : {false, true}) {
                const nolk::TensorShape in{2, 3, from[0], from[1], 3}, out{2, 3, to[0], to[1], 3};
                const auto size = reference::count(in);
                const auto x = special ? valuesWithSpecials(8, size) : Values(8).reals(size);
                Net net;
                auto* a = net.input(in, x);
                const auto got =
                    net.run({net->resize(a, out, nolk::ResizeMode::linear, nolk::ResizeTransMode::halfPixel),
                             net->resize(a, out, nolk::ResizeMode::linear, static_cast<nolk::ResizeTransMode>(7)),
                             net->resize(a, out, nolk::ResizeMode::nearest, nolk::ResizeTransMode::halfPixel)});
                SCOPED_TRACE(testing::Message() << from[0] << "x" << from[1] << " to " << to[0] << "x" << to[1]);
                expectSameBits(got[0], reference::resizeLinear(in, x, out, true));
                expectSameBits(got[1], reference::resizeLinear(in, x, out, false));
                expectSameBits(got[2], reference::resizeNearest(in, x, out));
            }
}

TEST(RawResizeLayer, RefusesWhatWouldLeaveATensor) {
    struct Case {
        nolk::TensorShape in, out;
        bool linearRefused, nearestRefused;
    };
    const Case cases[] = {
        {{1, 3, 2, 2, 3}, {1, 2, 4, 4, 3}, true, false}, {{1, 2, 2, 2, 3}, {1, 3, 4, 4, 3}, false, true},
        {{2, 3, 2, 2, 3}, {1, 3, 4, 4, 3}, true, false}, {{1, 3, 2, 2, 3}, {2, 3, 4, 4, 3}, false, true},
        {{1, 3, 0, 2, 3}, {1, 3, 4, 4, 3}, true, true},  {{1, 3, 2, 2, 3}, {1, 3, 0, 4, 3}, false, false},
        {{1, 0, 2, 2, 3}, {1, 3, 4, 4, 3}, false, true}, {{1, 3, 2, 2, 3}, {1, 0, 4, 4, 3}, true, false}};
    for (const Case& c : cases)
        for (const bool linear : {true, false}) {
            Net net;
            auto* y = net->resize(net.input(c.in, Values(1).reals(reference::count(c.in))), c.out,
                                  linear ? nolk::ResizeMode::linear : nolk::ResizeMode::nearest,
                                  nolk::ResizeTransMode::alignCorners);
            SCOPED_TRACE(&c - cases);
            if (linear ? c.linearRefused : c.nearestRefused)
                expectRefused(net, y, "resize: ");
            else
                EXPECT_EQ(net.run({y}).size(), 1u);
        }
}

TEST(RawResizeLayer, AnUnknownModeEndsTheProcessWhenItRuns) {
    for (const int mode : {0, 3}) {
        Net net;
        net.build({net->resize(net.input({1, 1, 1, 1, 3}, {1}), {1, 1, 2, 2, 3}, static_cast<nolk::ResizeMode>(mode),
                               nolk::ResizeTransMode::halfPixel)});
        EXPECT_EXIT(
            {
                dup2(STDERR_FILENO, STDOUT_FILENO);
                net.runAgain();
            },
            testing::ExitedWithCode(0), "^not suppot yet\n$");
    }
}

}  // namespace
