// Activations, element-wise operations and batch normalisation.
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "support/Net.h"
#include "support/plain.h"
#include "support/values.h"

namespace {

using plain::Plain;

const float kNan = std::numeric_limits<float>::quiet_NaN();
const float kInf = std::numeric_limits<float>::infinity();

const nolk::TensorShape kShapes[] = {{1, 1, 1, 1, 3}, {1, 3, 1, 1, 1}, {2, 2, 1, 1, 3},
                                     {1, 2, 3, 5, 3}, {3, 5, 2, 7, 3}, {2, 3, 0, 4, 3}};

Plain somePlain(nolk::TensorShape shape, Values& values) {
    Plain x{shape, values.reals(static_cast<std::size_t>(shape.n) * shape.c * shape.h * shape.w)};
    const float special[] = {-0.0f, kNan, kInf, -kInf, 0.0f};
    for (std::size_t i = 0; i < x.values.size(); i += 7) x.values[i] = special[i % 5];
    return x;
}

struct ActCase {
    ActivateType type;
    float p0, p1;
    nolk::TensorX* (*record)(nolk::RunnerBuilder*, nolk::TensorX*, float p0, float p1, std::vector<float>& slopes);
};

using Builder = nolk::RunnerBuilder;
using X = nolk::TensorX;
using Slopes = std::vector<float>;

const ActCase kActivations[] = {
    {ACT_RELU, 0, 0, [](Builder* b, X* x, float, float, Slopes&) { return b->relu(x); }},
    {ACT_SIGMOID, 0, 0, [](Builder* b, X* x, float, float, Slopes&) { return b->sigmoid(x); }},
    {ACT_EXP, 0, 0, [](Builder* b, X* x, float, float, Slopes&) { return b->exp(x); }},
    {ACT_CLIP, -0.25f, 0.5f, [](Builder* b, X* x, float p0, float p1, Slopes&) { return b->clip(x, p0, p1); }},
    {ACT_CLIP, 0.5f, -0.25f, [](Builder* b, X* x, float p0, float p1, Slopes&) { return b->clip(x, p0, p1); }},
    {ACT_HARD_SIGMOID, 0.7f, 0.3f,
     [](Builder* b, X* x, float p0, float p1, Slopes&) { return b->hardSigmoid(x, p0, p1); }},
    {ACT_ABS, 0, 0, [](Builder* b, X* x, float, float, Slopes&) { return b->abs(x); }},
    {ACT_LEAKY_RELU, 0.1f, 0, [](Builder* b, X* x, float p0, float, Slopes&) { return b->leakyRelu(x, p0); }},
    {ACT_TANH, 0, 0, [](Builder* b, X* x, float, float, Slopes&) { return b->tanh(x); }},
    {ACT_PRELU, 0, 0,
     [](Builder* b, X* x, float, float, Slopes& s) { return b->prelu(x, s.data(), static_cast<int>(s.size())); }},
};

TEST(Activation, EqualsItsFormulaInPlaceAndNot) {
    Values values(11);
    for (const ActCase& act : kActivations)
        for (const nolk::TensorShape& shape : kShapes) {
            SCOPED_TRACE(act.type);
            const Plain x = somePlain(shape, values);
            Slopes slopes = values.reals(static_cast<std::size_t>(shape.c) + 1);
            const std::vector<float> expected = plain::activate(x, act.type, act.p0, act.p1, slopes).values;
            Net inPlace;
            X* y = act.record(inPlace.operator->(), inPlace.input(shape, x.values), act.p0, act.p1, slopes);
            expectSameBits(inPlace.run({y})[0], expected);

            // An output keeps its values, so nothing may work over it.
            Net kept;
            X* in = kept.input(shape, x.values);
            X* z = act.record(kept.operator->(), in, act.p0, act.p1, slopes);
            const auto out = kept.run({z, in});
            expectSameBits(out[0], expected);
            expectSameBits(out[1], x.values);
        }
}

TEST(Activation, TooFewSlopesAreRefused) {
    float slopes[2] = {1, 2};
    for (const int count : {2, 0, -1}) {
        Net net;
        EXPECT_THROW(net.build({net->prelu(net.input({1, 3, 2, 2, 3}, {}), slopes, count)}), std::invalid_argument);
    }
    Net none;
    EXPECT_NO_THROW(none.build({none->prelu(none.input({1, 0, 2, 2, 3}, {}), nullptr, 5)}));
    Net empty;
    EXPECT_EQ(empty.run({empty->prelu(empty.input({1, 3, 0, 2, 3}, {}), slopes, 0)})[0].size(), 0u);
}

struct EltwiseCase {
    nolk::TensorShape a, b;
};

const EltwiseCase kPairs[] = {
    {{2, 3, 4, 5, 3}, {2, 3, 4, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 3, 1, 1, 3}},
    {{2, 3, 1, 1, 3}, {2, 3, 1, 1, 1}}, {{2, 3, 4, 5, 3}, {2, 1, 4, 5, 3}},
    {{2, 3, 4, 5, 3}, {2, 3, 1, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 3, 4, 1, 3}},
    {{2, 3, 4, 5, 3}, {2, 1, 1, 5, 3}}, {{2, 3, 4, 5, 3}, {2, 1, 1, 1, 3}},
    {{2, 3, 4, 5, 3}, {1, 3, 4, 5, 3}},  // a batch of one: the second sample finds nothing
    {{3, 2, 3, 3, 3}, {1, 1, 3, 3, 3}}, {{3, 2, 3, 3, 3}, {1, 2, 1, 1, 3}},
    {{2, 4, 2, 2, 3}, {2, 3, 2, 2, 3}}, {{2, 4, 3, 3, 3}, {2, 2, 3, 2, 3}},
    {{1, 2, 3, 3, 3}, {0, 2, 3, 3, 3}}, {{0, 2, 3, 3, 3}, {1, 2, 3, 3, 3}},
};

TEST(Eltwise, EqualsItsFormulaWithEveryBroadcast) {
    Values values(12);
    for (const EltwiseCase& pair : kPairs)
        for (const EltwiseType type : {ELTWISE_ADD, ELTWISE_SUB, ELTWISE_MUL, ELTWISE_DIV, ELTWISE_MAX})
            for (const bool keepA : {false, true}) {
                const Plain a = somePlain(pair.a, values), b = somePlain(pair.b, values);
                Net net;
                X* x = net.input(a.shape, a.values);
                X* y = net.input(b.shape, b.values);
                X* z = type == ELTWISE_ADD   ? net->add(x, y)
                       : type == ELTWISE_SUB ? net->sub(x, y)
                       : type == ELTWISE_MUL ? net->multiply(x, y)
                       : type == ELTWISE_DIV ? net->divide(x, y)
                                             : net->max(x, y);
                const auto out = net.run(keepA ? std::vector<X*>{z, x} : std::vector<X*>{z});
                SCOPED_TRACE(type);
                expectSameBits(out[0], plain::eltwise(a, b, type).values);
            }
}

TEST(Eltwise, ATensorMeetsItself) {
    Net net;
    X* x = net.input({1, 1, 1, 3, 3}, {1, -2, 3});
    expectSameBits(net.run({net->multiply(x, x)})[0], {1, 4, 9});
}

TEST(BatchNormalization, EqualsItsFormulaAndCopiesItsVectors) {
    Values values(13);
    for (const nolk::TensorShape& shape : kShapes) {
        const Plain x = somePlain(shape, values);
        const std::size_t channels = static_cast<std::size_t>(shape.c);
        std::vector<float> scale = values.reals(channels), bias = values.reals(channels), mean = values.reals(channels),
                           variance = values.reals(channels + 2);
        for (float& v : variance) v = v * v;
        const Plain expected = plain::batchNormalize(x, scale, bias, mean, variance, 1e-3f);
        Net net;
        X* y = net->batchNormalize(net.input(shape, x.values), {shape.c, scale.data()}, {shape.c, bias.data()},
                                   {shape.c, mean.data()}, {shape.c + 2, variance.data()}, 1e-3f);
        for (auto* v : {&scale, &bias, &mean, &variance}) std::fill(v->begin(), v->end(), 99.0f);
        expectSameBits(net.run({y})[0], expected.values);
    }
}

TEST(BatchNormalization, ShortVectorsAreRefused) {
    float v[3] = {1, 1, 1};
    for (int shortOne = 0; shortOne < 4; ++shortOne) {
        nolk::Vector vectors[4];
        for (int i = 0; i < 4; ++i) vectors[i] = {i == shortOne ? 2 : 3, v};
        Net net;
        X* y =
            net->batchNormalize(net.input({1, 3, 2, 2, 3}, {}), vectors[0], vectors[1], vectors[2], vectors[3], 0.1f);
        EXPECT_THROW(net.build({y}), std::invalid_argument);
    }
}

}  // namespace
