// LSTM.
#include <algorithm>

#include "convert/lower/operators.h"

namespace convert {

namespace {

void checkAttributes(const NodeLowering& n, int directions) {
    if (n.attribute("clip") != nullptr) n.refuse("clip", "export the LSTM without clip");
    if (n.integer("input_forget", 0) != 0) n.refuse("input_forget", "export the LSTM without input_forget");
    if (const auto* activations = n.attribute("activations")) {
        const char* const expected[] = {"Sigmoid", "Tanh", "Tanh"};
        for (int i = 0; i < activations->strings_size(); ++i)
            if (activations->strings(i) != expected[i % 3])
                n.refuse("the activation " + activations->strings(i), "use the usual activations");
        if (activations->strings_size() != 3 * directions && activations->strings_size() != 0)
            n.refuse(std::to_string(activations->strings_size()) + " activations", kAgainstOnnx);
    }
}

void checkStates(const NodeLowering& n, std::int64_t steps) {
    if (n.has(4))
        for (const std::int64_t length : n.integers(4, "sequence_lens"))
            if (length != steps) n.refuse("sequence_lens below the number of steps", "give sequences of one length");
    const char* const names[] = {"initial_h", "initial_c", "P"};
    constexpr const char* kAdvice = "start from zero states, without peepholes";
    for (std::size_t i = 0; i < 3; ++i) {
        if (!n.has(5 + i)) continue;
        if (!n.isConstant(5 + i)) n.refuse(std::string(names[i]) + " depends on the network's input", kAdvice);
        const Floats values = n.floats(5 + i, names[i]);
        if (std::any_of(values->begin(), values->end(), [](float v) { return v != 0.0f; }))
            n.refuse(std::string(names[i]) + " is not zero", kAdvice);
    }
}

nolk::Direction directionOf(const NodeLowering& n) {
    const std::string direction = n.text("direction", "forward");
    if (direction == "forward") return nolk::Direction::forward;
    if (direction == "reverse") return nolk::Direction::backward;
    if (direction == "bidirectional") return nolk::Direction::both;
    n.refuse("the direction " + direction);
}

// The last outputs: of the last step forward, of the first backward.
int lastOutputs(Program& program, int y, nolk::Direction direction, int hiddenSize) {
    const int steps = program.shapeOf(y).h;
    const int last = program.slice(y, nolk::Axis::h, steps - 1, 1), first = program.slice(y, nolk::Axis::h, 0, 1);
    if (direction == nolk::Direction::forward) return last;
    if (direction == nolk::Direction::backward) return first;
    return program.concat({program.slice(last, nolk::Axis::w, 0, hiddenSize),
                           program.slice(first, nolk::Axis::w, hiddenSize, hiddenSize)},
                          nolk::Axis::w);
}

}  // namespace

// nolk has the gates in ONNX's order, and both halves of the bias.
void lowerLstm(NodeLowering& n) {
    const Array &inputWeights = n.constant(1, "W"), &recurrentWeights = n.constant(2, "R");
    if (inputWeights.dims().size() != 3 || recurrentWeights.dims().size() != 3)
        n.refuse("W and R should have 3 dimensions");
    const nolk::Direction direction = directionOf(n);
    const int directions = direction == nolk::Direction::both ? 2 : 1;
    const std::int64_t hidden = recurrentWeights.dims()[2], features = inputWeights.dims()[2];
    if (inputWeights.dims() != Dims{directions, 4 * hidden, features} ||
        recurrentWeights.dims() != Dims{directions, 4 * hidden, hidden})
        n.refuse("W " + describeDims(inputWeights.dims()) + " and R " + describeDims(recurrentWeights.dims()) +
                 " do not fit each other");
    const bool batchFirst = n.integer("layout", 0) != 0;
    const Placed x = n.x(0);
    if (x.rank() != 3 || x.dims()[2] != features) n.refuse("an input of " + describeDims(x.dims()));
    const std::int64_t batch = x.dims()[batchFirst ? 0 : 1], steps = x.dims()[batchFirst ? 1 : 0];
    if (batch != 1) n.refuse("a fixed batch of " + std::to_string(batch), "export with a batch of 1 or a free one");
    checkAttributes(n, directions);
    checkStates(n, steps);
    if (n.wants(2)) n.refuse("the output Y_c is used", "use Y or Y_h");
    const LstmArrays arrays{direction,
                            asInt(features),
                            asInt(hidden),
                            floatsOf(inputWeights),
                            floatsOf(recurrentWeights),
                            n.has(3) ? n.floats(3, "B") : nullptr};
    if (arrays.bias && static_cast<std::int64_t>(arrays.bias->size()) != directions * 8 * hidden)
        n.refuse("B has " + std::to_string(arrays.bias->size()) + " values");
    const int step = n.program.lstm(arranged(n.program, x, {{}, {0, 1}, {2}}), arrays);
    if (n.wants(0)) n.result(placed(step, n.outDims(0)), 0);
    if (n.wants(1)) n.result(placed(lastOutputs(n.program, step, direction, asInt(hidden)), n.outDims(1)), 1);
}

}  // namespace convert
