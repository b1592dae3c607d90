#include <gtest/gtest.h>
#include <unistd.h>

#include "support/expectReference.h"

namespace {

using nolk::ResizeMode;
using nolk::ResizeTransMode;

Record resize(const Shape& out, ResizeMode mode, ResizeTransMode transMode) {
    return [=](Recording& r) { return r->resize(r.x[0], out, mode, transMode); };
}

TEST(RawResizeLayer, InterpolatesOrPicksForAllExtents) {
    const nolk::DimsHW extents[] = {{1, 1}, {1, 3}, {4, 1}, {2, 2}, {3, 5}, {7, 13}, {16, 9}};
    for (const auto& from : extents)
        for (const auto& to : extents) {
            const Shape in{2, 3, from.h, from.w, 3}, out{2, 3, to.h, to.w, 3};
            SCOPED_TRACE(testing::Message() << from.h << "x" << from.w << " to " << to.h << "x" << to.w);
            expectReference({in}, resize(out, ResizeMode::linear, ResizeTransMode::halfPixel));
            expectReference({in}, resize(out, ResizeMode::linear, static_cast<ResizeTransMode>(7)));
            expectReference({in}, resize(out, ResizeMode::nearest, ResizeTransMode::halfPixel));
        }
}

TEST(RawResizeLayer, ASingleValueIsCopiedWithItsSign) {
    Net net;
    X const y = net->resize(net.input({1, 1, 1, 1, 3}, {-0.0f}), {1, 1, 1, 2, 3}, ResizeMode::linear, {});
    expectSameBits(net.run({y})[0], {-0.0f, -0.0f});
}

TEST(RawResizeLayer, RefusesWhatWouldLeaveATensor) {
    const struct {
        Shape in, out;
        bool linearRefused, nearestRefused;
    } cases[] = {{{1, 3, 2, 2, 3}, {1, 2, 4, 4, 3}, true, false}, {{1, 2, 2, 2, 3}, {1, 3, 4, 4, 3}, false, true},
                 {{2, 3, 2, 2, 3}, {1, 3, 4, 4, 3}, true, false}, {{1, 3, 2, 2, 3}, {2, 3, 4, 4, 3}, false, true},
                 {{1, 3, 0, 2, 3}, {1, 3, 4, 4, 3}, true, true},  {{1, 3, 2, 2, 3}, {1, 3, 0, 4, 3}, false, false},
                 {{1, 0, 2, 2, 3}, {1, 3, 4, 4, 3}, false, true}, {{1, 3, 2, 2, 3}, {1, 0, 4, 4, 3}, true, false}};
    for (const auto& c : cases)
        for (const ResizeMode mode : {ResizeMode::linear, ResizeMode::nearest}) {
            SCOPED_TRACE(&c - cases);
            const Record record = resize(c.out, mode, ResizeTransMode::alignCorners);
            const bool refused = mode == ResizeMode::linear ? c.linearRefused : c.nearestRefused;
            expectRefused({c.in}, refused ? "resize: " : nullptr, record);
        }
}

TEST(RawResizeLayer, AnUnknownModeEndsTheProcessWhenItRuns) {
    for (const int mode : {0, 3})
        EXPECT_EXIT(
            {
                dup2(STDERR_FILENO, STDOUT_FILENO);
                expectAccepted({{1, 1, 1, 1, 3}},
                               resize({1, 1, 2, 2, 3}, static_cast<ResizeMode>(mode), ResizeTransMode::halfPixel));
            },
            testing::ExitedWithCode(0), "^not suppot yet\n$");
}

}  // namespace
