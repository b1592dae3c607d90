// Every operation on tensors of many shapes; activations, element-wise operations and normalisations in detail.
#include <gtest/gtest.h>

#include "support/everyOperation.h"
#include "support/expectReference.h"

namespace {

const Shape kShapes[] = {{1, 1, 1, 1, 3},   {1, 3, 1, 1, 1},  {2, 10, 1, 1, 1}, {2, 3, 4, 5, 3}, {3, 7, 1, 67, 3},
                         {1, 13, 9, 31, 3}, {1, 64, 8, 8, 3}, {1, 5, 13, 1, 3}, {2, 3, 0, 4, 3}, {1, 0, 3, 3, 3}};

// Operations with other arguments than those in the list of every operation. Vectors may be longer than needed, and are
// copied.
const Record kOthers[] = {
    [](Recording& r) { return r->clip(r.x[0], 0.5f, -0.25f); },
    [](Recording& r) { return r->prelu(r.x[0], r.reals(65), 65); },
    [](Recording& r) { return r->instanceNormalization(r.x[0], 0.0f); },
    [](Recording& r) {
        Arrays gone(5);
        return r->instanceNormalization(r.x[0], gone.vector(65), gone.vector(64), 1e-5f);
    },
    [](Recording& r) {
        Arrays gone(4);
        const nolk::Vector scale = gone.vector(64), bias = gone.vector(64), mean = gone.vector(64);
        return r->batchNormalize(r.x[0], scale, bias, mean, gone.positive(66), 1e-3f);
    },
};

TEST(Elements, EqualTheirFormulasAsEveryOperationDoes) {
    for (const Shape& shape : kShapes) {
        SCOPED_TRACE(testing::Message() << "[" << shape.n << " " << shape.c << " " << shape.h << " " << shape.w << "]");
        for (const Record& record : kOthers) {
            SCOPED_TRACE(&record - kOthers);
            expectReference({shape}, record);
        }
        for (const OperationCase& o : everyOperation(shape)) {
            SCOPED_TRACE(o.name);
            if (o.name == "lstm") continue;                                          // its formula wants a channel
            const bool isProduct = o.name == "convolve" || o.name == "fullConnect";  // in an order of its own
            if (!refusalOf({shape, shape}, o.record))
                expectReference({shape, shape}, o.record, isProduct ? 1e-5f : 0.0f);
        }
    }
}

TEST(Activation, TooFewSlopesAreRefused) {
    const auto prelu = [](int count) { return [count](Recording& r) { return r->prelu(r.x[0], r.reals(2), count); }; };
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
        [](Recording& r) { return r->add(r.x[0], r.x[1]); },
        [](Recording& r) { return r->sub(r.x[0], r.x[1]); },
        [](Recording& r) { return r->multiply(r.x[0], r.x[1]); },
        [](Recording& r) { return r->divide(r.x[0], r.x[1]); },
        [](Recording& r) { return r->max(r.x[0], r.x[1]); },
        [](Recording& r) { return r->multiply(r.x[0], r.x[0]); },
    };
    for (const std::vector<Shape>& pair : pairs)
        for (const Record& operation : operations) {
            SCOPED_TRACE(testing::Message() << "pair " << &pair - pairs << " operation " << &operation - operations);
            expectReference(pair, operation);
        }
}

TEST(InstanceNormalization, RefusesVectorsWithoutAValueForEveryChannel) {
    float values[3] = {};
    const nolk::Vector three{3, values};
    for (const nolk::Vector& v : {nolk::Vector{2, values}, {3, nullptr}, {-1, values}})
        for (const bool scale : {true, false})
            expectRefused({{1, 3, 1, 1, 3}}, "instanceNormalization: input has 3 channels", [&](Recording& r) {
                return r->instanceNormalization(r.x[0], scale ? v : three, scale ? three : v, 0.0f);
            });
}

TEST(L2Normalization, APositionOfZerosGivesNaN) {
    Net net;
    const auto out = net.run({net->l2normalize(net.input({1, 2, 1, 2, 3}, {3, 0, 4, 0}))})[0];
    expectSameBits(out, {0.6f, std::nanf(""), 0.8f, std::nanf("")});
}

TEST(SoftMax, AnUnknownAxisIsReportedAndLeavesTheValues) {
    for (const int axis : {0, -1, 4}) {
        Net net;
        auto* y = net->softmax(net.input({1, 3, 1, 1, 3}, {1, 2, 3}), static_cast<nolk::Axis>(axis));
        testing::internal::CaptureStderr();
        expectSameBits(net.run({y})[0], {1, 2, 3});
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "unknown softmax axis: " + std::to_string(axis) + "\n");
    }
}

TEST(BatchNormalization, ShortVectorsAreRefused) {
    for (int shortOne = 0; shortOne < 4; ++shortOne)
        expectRefused({{1, 3, 2, 2, 3}}, "batchNormalize: input has 3 channels", [&](Recording& r) {
            nolk::Vector v[4];
            for (int i = 0; i < 4; ++i) v[i] = r.vector(i == shortOne ? 2 : 3);
            return r->batchNormalize(r.x[0], v[0], v[1], v[2], v[3], 0.1f);
        });
}

}  // namespace
