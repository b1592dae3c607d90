#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(RawL2NormalizationLayer, DividesByTheNormAcrossChannels) {
    const Shape shapes[] = {{1, 1, 1, 1, 3},  {2, 3, 4, 5, 3},  {3, 7, 1, 67, 3}, {1, 13, 9, 31, 3},
                            {2, 10, 1, 1, 1}, {1, 64, 8, 8, 3}, {1, 0, 3, 3, 3}};
    for (const Shape& shape : shapes)
        expectReference({shape}, [](Builder& b, Xs& x, Arrays&) { return b.l2normalize(x[0]); });
}

TEST(RawL2NormalizationLayer, APositionOfZerosGivesNaN) {
    Net net;
    const auto out = net.run({net->l2normalize(net.input({1, 2, 1, 2, 3}, {3, 0, 4, 0}))})[0];
    expectSameBits(out, {0.6f, std::nanf(""), 0.8f, std::nanf("")});
}

}  // namespace
