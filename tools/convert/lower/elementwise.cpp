// Arithmetic, element by element.
#include <algorithm>
#include <cmath>
#include <utility>

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

// The values where the mask is not 0, and 0 elsewhere, both repeated to common dims.
Array selected(const Program& program, const Array& values, const Array& mask) {
    const std::size_t rank = std::max(values.dims().size(), mask.dims().size());
    Dims dims(rank, 1);
    std::vector<std::int64_t> steps(rank, 0), maskSteps(rank, 0);
    for (const auto& [array, own] : {std::pair(&values, &steps), std::pair(&mask, &maskSteps)}) {
        std::int64_t step = 1;
        for (std::size_t i = array->dims().size(), at = rank; i-- > 0;) {
            const std::int64_t extent = array->dims()[i];
            --at;
            if (extent == 1) continue;
            dims[at] = extent;
            (*own)[at] = step;
            step *= extent;
        }
    }
    program.requireFloats(elementCount(dims));
    const Floats source = floatsOf(values), chosen = floatsOf(mask);
    std::vector<float> result(static_cast<std::size_t>(elementCount(dims)));
    for (std::size_t i = 0; i < result.size(); ++i) {
        auto rest = static_cast<std::int64_t>(i);
        std::int64_t at = 0, atMask = 0;
        for (std::size_t axis = rank; axis-- > 0; rest /= dims[axis]) {
            at += rest % dims[axis] * steps[axis];
            atMask += rest % dims[axis] * maskSteps[axis];
        }
        if ((*chosen)[static_cast<std::size_t>(atMask)] != 0) result[i] = (*source)[static_cast<std::size_t>(at)];
    }
    return floatArray(dims, std::move(result));
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
    const double exponent = exponents->empty() ? 1 : exponents->front();
    const bool isOne =
        std::all_of(exponents->begin(), exponents->end(), [&](float e) { return e == exponents->front(); });
    if (!isOne) n.refuse("different exponents", "use a Pow of its own for each exponent, and join their results");
    const Placed x = n.x(0);
    if (n.outDims() != x.dims())
        n.refuse("exponents of shape " + describeDims(n.dims(1)) + " for a base of " + describeDims(x.dims()),
                 "use one number as the exponent");
    constexpr double kLargest = 64;
    if (exponent == 0) return n.result(with(x, n.program.plus(n.program.clip(x.step, 0, 0), 1)));
    if (exponent == 0.5) return n.result(with(x, squareRoot(n.program, x.step)));
    if (exponent == -0.5)
        return n.result(combined(n.program, Binary::divide, one(), operandOf(with(x, squareRoot(n.program, x.step)))));
    if (exponent != std::floor(exponent) || std::fabs(exponent) > kLargest)
        n.refuse("the exponent " + std::to_string(exponent), "use a whole number up to 64, 0.5 or -0.5");
    const Placed power = powerOf(n.program, x, static_cast<int>(std::fabs(exponent)));
    if (exponent > 0) return n.result(power);
    n.result(combined(n.program, Binary::divide, one(), operandOf(power)));
}

void lowerSqrt(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, squareRoot(n.program, x.step)));
}

// A choice that is known in advance: a * mask + b * (1 - mask). Constants are chosen from in advance, for an infinite
// one times 0 is no number.
void lowerWhere(NodeLowering& n) {
    const Array& condition = n.constant(0, "the condition");
    const Floats chosen = floatsOf(condition);
    std::vector<float> first(*chosen), second(first.size());
    for (std::size_t i = 0; i < first.size(); ++i) second[i] = 1.0f - first[i];
    const auto share = [&](std::size_t input, std::vector<float> values) {
        const Array mask = floatArray(condition.dims(), std::move(values));
        if (n.isConstant(input)) return operandOf(selected(n.program, n.constant(input, "values"), mask));
        return operandOf(combined(n.program, Binary::multiply, operandOf(n.x(input)), operandOf(mask)));
    };
    const Operand a = share(1, std::move(first)), b = share(2, std::move(second));
    n.result(combined(n.program, Binary::add, a, b));
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
