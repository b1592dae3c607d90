#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

TEST(RawInstanceNormalizationLayer, NormalisesEveryPlaneAndCopiesItsVectors) {
    for (const Shape& shape :
         {Shape{1, 1, 1, 1, 3}, {2, 3, 4, 5, 3}, {3, 7, 1, 13, 3}, {1, 2, 9, 3, 3}, {2, 3, 0, 3, 3}})
        for (const float epsilon : {1e-5f, 0.0f}) {
            expectReference({shape}, [&](Builder& b, Xs& x, Arrays&) {
                Arrays gone(5);
                return b.instanceNormalization(x[0], gone.vector(shape.c + 1), gone.vector(shape.c), epsilon);
            });
            expectReference({shape},
                            [&](Builder& b, Xs& x, Arrays&) { return b.instanceNormalization(x[0], epsilon); });
        }
}

TEST(RawInstanceNormalizationLayer, RefusesVectorsWithoutAValueForEveryChannel) {
    float values[3] = {};
    const nolk::Vector three{3, values};
    for (const nolk::Vector& v : {nolk::Vector{2, values}, {3, nullptr}, {-1, values}})
        for (const bool scale : {true, false})
            expectRefused({{1, 3, 1, 1, 3}}, "instanceNormalization: input has 3 channels",
                          [&](Builder& b, Xs& x, Arrays&) {
                              return b.instanceNormalization(x[0], scale ? v : three, scale ? three : v, 0.0f);
                          });
}

}  // namespace
