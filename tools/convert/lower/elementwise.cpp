// Arithmetic, element by element.
#include <cmath>
#include <limits>

#include "convert/lower/broadcast.h"
#include "convert/lower/elements.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

void lowerBinary(NodeLowering& n, Binary operation) {
    n.result(combined(n.program, operation, operandOf(n, 0), operandOf(n, 1)));
}

// For any number of inputs.
Placed folded(NodeLowering& n, Binary operation) {
    Operand result = operandOf(n, 0);
    for (std::size_t i = 1; i < n.inputCount(); ++i)
        result = operandOf(combined(n.program, operation, result, operandOf(n, i)));
    return result.tensor ? *result.tensor : constantStep(n.program, *result.values);
}

Operand negated(Program& program, const Operand& x) {
    if (x.tensor) return operandOf(with(*x.tensor, program.times(x.tensor->step, -1.0f)));
    std::vector<float> values = *floatsOf(*x.values);
    for (float& value : values) value = -value;
    return operandOf(floatArray(x.values->dims(), std::move(values)));
}

Operand one() { return operandOf(floatArray({}, {1.0f})); }

// x to a whole power, by squaring.
Placed powerOf(Program& program, const Placed& x, int exponent) {
    if (exponent == 1) return x;
    const Placed half = powerOf(program, x, exponent / 2);
    const Placed square = with(half, program.multiply(half.step, half.step));
    return exponent % 2 == 0 ? square : combined(program, Binary::multiply, operandOf(square), operandOf(x));
}

}  // namespace

// Newton's iteration halves a start that is too large in every step, and comes close in the last ones: 32 steps are
// enough from 1e-16 to 1e16.
int squareRoot(Program& program, int x) {
    constexpr int kSteps = 32;
    int y = program.times(program.plus(x, 1.0f), 0.5f);
    for (int i = 0; i < kSteps; ++i) y = program.times(program.add(y, program.divide(x, y)), 0.5f);
    return y;
}

void lowerAdd(NodeLowering& n) { lowerBinary(n, Binary::add); }

void lowerSub(NodeLowering& n) { lowerBinary(n, Binary::sub); }

void lowerMul(NodeLowering& n) { lowerBinary(n, Binary::multiply); }

void lowerDiv(NodeLowering& n) { lowerBinary(n, Binary::divide); }

void lowerMax(NodeLowering& n) { n.result(folded(n, Binary::max)); }

// min(a, b) = -max(-a, -b)
void lowerMin(NodeLowering& n) {
    Operand result = negated(n.program, operandOf(n, 0));
    for (std::size_t i = 1; i < n.inputCount(); ++i)
        result = operandOf(combined(n.program, Binary::max, result, negated(n.program, operandOf(n, i))));
    const Operand positive = negated(n.program, result);
    n.result(positive.tensor ? *positive.tensor : constantStep(n.program, *positive.values));
}

void lowerSum(NodeLowering& n) { n.result(folded(n, Binary::add)); }

void lowerMean(NodeLowering& n) {
    const Placed sum = folded(n, Binary::add);
    n.result(with(sum, n.program.times(sum.step, 1.0f / static_cast<float>(n.inputCount()))));
}

void lowerNeg(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, n.program.times(x.step, -1.0f)));
}

void lowerReciprocal(NodeLowering& n) { n.result(combined(n.program, Binary::divide, one(), operandOf(n.x(0)))); }

void lowerPow(NodeLowering& n) {
    const Floats exponents = n.floats(1, "the exponent");
    if (exponents->size() != 1) n.refuse("an exponent for each element", "use one number");
    const double exponent = exponents->front();
    const Placed x = n.x(0);
    if (n.outDims().size() != x.rank()) n.refuse("an exponent with more dimensions than the base");
    constexpr double kLargest = 64;
    if (exponent == 0.5) return n.result(with(x, squareRoot(n.program, x.step)));
    if (exponent == -0.5)
        return n.result(combined(n.program, Binary::divide, one(), operandOf(with(x, squareRoot(n.program, x.step)))));
    if (exponent != std::floor(exponent) || exponent == 0.0 || std::fabs(exponent) > kLargest)
        n.refuse("the exponent " + std::to_string(exponent), "only whole numbers up to 64, 0.5 and -0.5 are supported");
    const Placed power = powerOf(n.program, x, static_cast<int>(std::fabs(exponent)));
    if (exponent > 0) return n.result(power);
    n.result(combined(n.program, Binary::divide, one(), operandOf(power)));
}

void lowerSqrt(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, squareRoot(n.program, x.step)));
}

// A choice that is known in advance: a * mask + b * (1 - mask), with infinite values made finite.
void lowerWhere(NodeLowering& n) {
    const Array& condition = n.constant(0, "the condition");
    const Floats chosen = floatsOf(condition);
    std::vector<float> first(*chosen), second(first.size());
    for (std::size_t i = 0; i < first.size(); ++i) second[i] = 1.0f - first[i];
    const auto share = [&](std::size_t input, const std::vector<float>& mask) {
        Operand x = operandOf(n, input);
        if (x.values) {
            std::vector<float> values = *floatsOf(*x.values);
            for (float& value : values)
                value =
                    std::min(std::max(value, -std::numeric_limits<float>::max()), std::numeric_limits<float>::max());
            x = operandOf(floatArray(x.values->dims(), std::move(values)));
        }
        return combined(n.program, Binary::multiply, x, operandOf(floatArray(condition.dims(), mask)));
    };
    const Placed a = share(1, first), b = share(2, second);
    n.result(combined(n.program, Binary::add, operandOf(a), operandOf(b)));
}

void lowerCast(NodeLowering& n) {
    const int to = static_cast<int>(n.integer("to", onnx::TensorProto::FLOAT));
    if (!isFloatType(to))
        n.refuse("to " + typeName(to), "only casts between floats are supported: leave the rounding to the host");
    n.result(n.x(0));
}

void lowerIdentity(NodeLowering& n) { n.result(n.x(0)); }

void lowerDropout(NodeLowering& n) {
    if (n.wants(1)) n.refuse("the output mask is used", "export in evaluation mode");
    if (n.has(2) && n.integers(2, "training_mode").front() != 0) n.refuse("training_mode", "export in evaluation mode");
    n.result(n.x(0));
}

}  // namespace convert
