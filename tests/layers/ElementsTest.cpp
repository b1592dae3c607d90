// Activations, element-wise operations and batch normalisation.
#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

const Shape kShapes[] = {{1, 1, 1, 1, 3}, {1, 3, 1, 1, 1}, {2, 2, 1, 1, 3},
                         {1, 2, 3, 5, 3}, {3, 5, 2, 7, 3}, {2, 3, 0, 4, 3}};

const Record kActivations[] = {
    [](Builder& b, Xs& x, Arrays&) { return b.relu(x[0]); },
    [](Builder& b, Xs& x, Arrays&) { return b.sigmoid(x[0]); },
    [](Builder& b, Xs& x, Arrays&) { return b.exp(x[0]); },
    [](Builder& b, Xs& x, Arrays&) { return b.tanh(x[0]); },
    [](Builder& b, Xs& x, Arrays&) { return b.abs(x[0]); },
    [](Builder& b, Xs& x, Arrays&) { return b.clip(x[0], -0.25f, 0.5f); },
    [](Builder& b, Xs& x, Arrays&) { return b.clip(x[0], 0.5f, -0.25f); },
    [](Builder& b, Xs& x, Arrays&) { return b.hardSigmoid(x[0], 0.7f, 0.3f); },
    [](Builder& b, Xs& x, Arrays&) { return b.leakyRelu(x[0], 0.1f); },
    [](Builder& b, Xs& x, Arrays& a) { return b.prelu(x[0], a.reals(6), 6); },
};

TEST(Activation, EqualsItsFormula) {
    for (const Record& record : kActivations)
        for (const Shape& shape : kShapes) {
            SCOPED_TRACE(&record - kActivations);
            expectReference({shape}, record);
        }
}

TEST(Activation, TooFewSlopesAreRefused) {
    const auto prelu = [](int count) {
        return [count](Builder& b, Xs& x, Arrays& a) { return b.prelu(x[0], a.reals(2), count); };
    };
    for (const int count : {2, 0, -1}) expectRefused({{1, 3, 2, 2, 3}}, "prelu: input has 3 channels", prelu(count));
    for (const Shape& empty : {Shape{1, 0, 2, 2, 3}, {1, 3, 0, 2, 3}}) expectAccepted({empty}, prelu(0));
}

TEST(Eltwise, EqualsItsFormulaWithEveryBroadcast) {
    const std::vector<Shape> pairs[] = {
        {{2, 3, 4, 5, 3}, {2, 3, 4, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 3, 1, 1, 3}},
        {{2, 3, 1, 1, 3}, {2, 3, 1, 1, 1}}, {{2, 3, 4, 5, 3}, {2, 1, 4, 5, 3}},
        {{2, 3, 4, 5, 3}, {2, 3, 1, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 3, 4, 1, 3}},
        {{2, 3, 4, 5, 3}, {2, 1, 1, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 1, 1, 1, 3}},
        {{2, 3, 4, 5, 3}, {1, 3, 4, 5, 3}},  // a batch of one: the second sample finds nothing
        {{3, 2, 3, 3, 3}, {1, 1, 3, 3, 3}}, {{3, 2, 3, 3, 3}, {1, 2, 1, 1, 3}},
        {{2, 4, 2, 2, 3}, {2, 3, 2, 2, 3}}, {{2, 4, 3, 3, 3}, {2, 2, 3, 2, 3}},
        {{1, 2, 3, 3, 3}, {0, 2, 3, 3, 3}}, {{0, 2, 3, 3, 3}, {1, 2, 3, 3, 3}},
    };
    const Record operations[] = {
        [](Builder& b, Xs& x, Arrays&) { return b.add(x[0], x[1]); },
        [](Builder& b, Xs& x, Arrays&) { return b.sub(x[0], x[1]); },
        [](Builder& b, Xs& x, Arrays&) { return b.multiply(x[0], x[1]); },
        [](Builder& b, Xs& x, Arrays&) { return b.divide(x[0], x[1]); },
        [](Builder& b, Xs& x, Arrays&) { return b.max(x[0], x[1]); },
        [](Builder& b, Xs& x, Arrays&) { return b.multiply(x[0], x[0]); },
    };
    for (const std::vector<Shape>& pair : pairs)
        for (const Record& operation : operations) {
            SCOPED_TRACE(testing::Message() << "pair " << &pair - pairs << " operation " << &operation - operations);
            expectReference(pair, operation);
        }
}

TEST(BatchNormalization, EqualsItsFormulaAndCopiesItsVectors) {
    for (const Shape& shape : kShapes)
        expectReference({shape}, [&](Builder& b, Xs& x, Arrays&) {
            Arrays gone(4);
            const nolk::Vector scale = gone.vector(shape.c), bias = gone.vector(shape.c), mean = gone.vector(shape.c);
            return b.batchNormalize(x[0], scale, bias, mean, gone.positive(shape.c + 2), 1e-3f);
        });
}

TEST(BatchNormalization, ShortVectorsAreRefused) {
    for (int shortOne = 0; shortOne < 4; ++shortOne)
        expectRefused({{1, 3, 2, 2, 3}}, "batchNormalize: input has 3 channels", [&](Builder& b, Xs& x, Arrays& a) {
            nolk::Vector v[4];
            for (int i = 0; i < 4; ++i) v[i] = a.vector(i == shortOne ? 2 : 3);
            return b.batchNormalize(x[0], v[0], v[1], v[2], v[3], 0.1f);
        });
}

}  // namespace
