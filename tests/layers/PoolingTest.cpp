// Pooling and padding.
#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(Pooling, EqualsTheWindows) {
    const struct {
        Shape in;
        nolk::DimsHW kernel;
        nolk::Padding padding;
        nolk::DimsHW stride;
    } cases[] = {
        {{1, 1, 4, 4, 3}, {2, 2}, {}, {2, 2}},
        {{2, 3, 7, 5, 3}, {3, 3}, {1, 1, 1, 1}, {2, 2}},
        {{1, 2, 5, 7, 3}, {3, 2}, {2, 0, 0, 2}, {1, 3}},
        {{1, 1, 1, 1, 3}, {1, 1}, {}, {1, 1}},
        {{1, 1, 3, 3, 3}, {2, 2}, {3, 0, 0, 0}, {1, 1}},  // the first windows lie wholly in the padding
        {{0, 2, 4, 4, 3}, {2, 2}, {}, {2, 2}},
        {{1, 1, 3, 3, 3}, {3, 3}, {}, {0, 0}},  // one position
        {{1, 1, 3, 3, 3}, {0, 0}, {}, {1, 1}},  // empty windows
        {{1, 1, 3, 3, 3}, {1, 1}, {9, 0, 0, 0}, {11, 3}},
        {{1, 1, 3, 3, 3}, {1, 1}, {-1, -1, -1, -1}, {1, 1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectReference({c.in}, [&](Recording& r) { return r->maxPool(r.x[0], c.kernel, c.padding, c.stride); });
        expectReference({c.in}, [&](Recording& r) { return r->avgPool(r.x[0], c.kernel, c.padding, c.stride); });
    }
}

TEST(EmptyTensors, AreNotCountedThrough) {
    const int many = 2147483647;
    Arrays arrays(5);
    Net net;
    X const x = net.input({many, many, 0, 1, 3}, {}), y = net.input({1, 1, 0, 1, 3}, {});
    X const z = net.input({1, 65535, 1, 1, 3}, std::vector<float>(65535));
    const nolk::Weights weights{1, 1, 65535, many, 0};
    const auto out = net.run({net->add(x, y), net->maxPool(x, {1, 1}, {}, {1, 1}), net->instanceNormalization(x, 0.1f),
                              net->convolve(z, {}, {1, 1}, {0, 1}, weights)});
    EXPECT_EQ(out[0].size(), 0u);
}

TEST(Padding, SurroundsEveryPlaneWithZeros) {
    for (const nolk::Padding& p : {nolk::Padding{1, 2, 0, 3}, {0, 0, 0, 0}, {0, 1, 2, 0}})
        for (const Shape& in : {Shape{1, 1, 2, 2, 3}, {2, 3, 4, 5, 3}, {1, 2, 0, 3, 3}})
            expectReference({in}, [&](Recording& r) { return r->pad(r.x[0], p); });
}

TEST(Padding, NegativeAmountsAreRefused) {
    expectRefused({{1, 1, 4, 4, 3}}, "pad: ", [](Recording& r) { return r->pad(r.x[0], {0, 0, -1, 0}); });
}

}  // namespace
