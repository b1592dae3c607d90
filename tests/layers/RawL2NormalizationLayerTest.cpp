#include <gtest/gtest.h>

#include "support/Net.h"
#include "support/reference.h"
#include "support/specials.h"
#include "support/values.h"

namespace {

TEST(RawL2NormalizationLayer, DividesByTheNormAcrossChannelsInPlaceAndNot) {
    const nolk::TensorShape shapes[] = {{1, 1, 1, 1, 3},  {2, 3, 4, 5, 3},  {3, 7, 1, 67, 3}, {1, 13, 9, 31, 3},
                                        {2, 10, 1, 1, 1}, {1, 64, 8, 8, 3}, {1, 0, 3, 3, 3}};
    for (const nolk::TensorShape& shape : shapes)
        for (const bool inPlace : {false, true})
            for (const bool special : {false, true}) {
                const auto size = reference::count(shape);
                const auto x = special ? valuesWithSpecials(4, size) : Values(4).reals(size);
                Net net;
                auto* a = net.input(shape, x);
                auto* y = net->l2normalize(a);
                const auto out = inPlace ? net.run({y}) : net.run({y, a});
                expectSameBits(out[0], reference::l2normalize(shape, x));
            }
}

TEST(RawL2NormalizationLayer, APositionOfZerosGivesNaN) {
    Net net;
    const auto out = net.run({net->l2normalize(net.input({1, 2, 1, 2, 3}, {3, 0, 4, 0}))})[0];
    expectSameBits(out, {0.6f, std::nanf(""), 0.8f, std::nanf("")});
}

}  // namespace
