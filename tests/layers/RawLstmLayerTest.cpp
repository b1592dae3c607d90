#include <gtest/gtest.h>

#include "support/expectReference.h"

namespace {

// More weights than any test below needs, in either direction.
nolk::LstmWeights weights(Recording& r, nolk::Direction direction, int directions, int inputs, int hidden) {
    const int gates = 4 * directions * hidden;
    return {direction,          directions, inputs, hidden, r.reals(gates * inputs), r.reals(gates * hidden),
            r.reals(2 * gates), true};
}

void expectLstm(const Shape& in, nolk::Direction direction, int directions, int inputs, int hidden, int bias = 2) {
    SCOPED_TRACE(testing::Message() << "t " << in.h << " hidden " << hidden << " bias " << bias);
    expectReference({in}, [=](Recording& r) {
        nolk::LstmWeights w = weights(r, direction, directions, inputs, hidden);
        if (bias == 0) w.bias = nullptr;
        w.splitBias = bias != 1;
        return r->lstm(r.x[0], w);
    });
}

TEST(RawLstmLayer, RunsOverTimeInEitherOrBothDirections) {
    using nolk::Direction;
    const struct {
        int n, t, inputs, hidden;
    } cases[] = {{1, 1, 1, 1}, {1, 3, 2, 2}, {2, 5, 7, 3}, {3, 4, 5, 17}, {1, 6, 0, 8}, {2, 0, 3, 2}, {1, 2, 3, 0}};
    for (const auto& c : cases)
        for (const Direction direction : {Direction::forward, Direction::backward, Direction::both})
            for (int bias = 0; bias < 3; ++bias)
                expectLstm({c.n, 1, c.t, c.inputs, 3}, direction, direction == Direction::both ? 2 : 1, c.inputs,
                           c.hidden, bias);
    // The number of directions decides.
    expectLstm({1, 1, 3, 2, 3}, Direction::forward, 2, 2, 3);
    expectLstm({1, 1, 3, 2, 3}, Direction::backward, 2, 2, 3);
    expectLstm({1, 1, 3, 2, 3}, Direction::both, 1, 2, 3);
    // Of several channels only the first rows are computed.
    expectLstm({2, 3, 2, 2, 3}, Direction::forward, 1, 2, 3);
    // Steps lie as many floats apart as the weights have inputs, whatever the rows of the tensor are.
    expectLstm({2, 1, 3, 4, 3}, Direction::forward, 1, 2, 3);
    expectLstm({2, 4, 3, 1, 3}, Direction::forward, 1, 2, 3);
}

TEST(RawLstmLayer, RefusesWeightsThatDoNotFit) {
    const struct {
        int directions, inputs, hidden;
        bool w, r;
        const char* text;
    } cases[] = {{0, 4, 4, true, true, "lstm: directions"},        {3, 4, 4, true, true, "lstm: directions"},
                 {-1, 4, 4, true, true, "lstm: directions"},       {1, 5, 4, true, true, "lstm: weights expect 5"},
                 {1, 4, -4, true, true, "lstm: hidden size"},      {1, 4, 65536, true, true, "fewer than 2^31"},
                 {2, 4, INT32_MAX, true, true, "fewer than 2^31"}, {1, 4, 4, false, true, "must not be null"},
                 {1, 4, 4, true, false, "must not be null"}};
    for (const auto& c : cases)
        expectRefused({{1, 1, 2, 4, 3}}, c.text, [&](Recording& r) {
            nolk::LstmWeights w = weights(r, nolk::Direction::forward, 2, 5, 4);
            if (!c.w) w.inputWeights = nullptr;
            if (!c.r) w.recurrentWeights = nullptr;
            w.numDirections = c.directions;
            w.inputSize = c.inputs;
            w.hiddenSize = c.hidden;
            return r->lstm(r.x[0], w);
        });
}

}  // namespace
