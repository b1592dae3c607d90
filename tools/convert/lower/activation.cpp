// Functions of one element, and softmax.
#include <algorithm>
#include <cmath>
#include <limits>

#include "convert/lower/broadcast.h"
#include "convert/lower/elements.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

constexpr float kLargest = std::numeric_limits<float>::max();

int negativePart(Program& program, int x) { return program.clip(x, -kLargest, 0.0f); }

// alpha * (e^(scale * x) - 1) for negative x, 0 for others.
int exponentialTail(Program& program, int x, float alpha, float scale) {
    const int e = program.exp(program.times(negativePart(program, x), scale));
    return program.times(program.plus(e, -1.0f), alpha);
}

int elu(Program& program, int x, float alpha, float scale) {
    return program.add(program.relu(x), exponentialTail(program, x, alpha, scale));
}

// x as [1, before, axes from first to last, after]; with back() the result stands for x.
struct Lines {
    Along along;
    Dims dims;
};

Lines linesOf(NodeLowering& n, const Placed& x, std::size_t first, std::size_t last, LineForm form) {
    const Dims dims = x.dims();
    Dims merged(dims.begin(), dims.begin() + static_cast<std::ptrdiff_t>(first));
    std::int64_t extent = 1;
    for (std::size_t i = first; i <= last; ++i) extent *= dims[i];
    merged.push_back(extent);
    merged.insert(merged.end(), dims.begin() + static_cast<std::ptrdiff_t>(last) + 1, dims.end());
    return {along(n.program, reshapedAlways(n.program, x, merged), first, form), dims};
}

Lines softmaxLines(NodeLowering& n, LineForm form) {
    const Placed x = n.x(0);
    constexpr int kSingleAxis = 13;  // the opset from which the axis alone counts; before, it and all behind it did
    const std::size_t axis = n.axis(n.integer("axis", n.opset() < kSingleAxis ? 1 : -1), x.rank());
    return linesOf(n, x, axis, n.opset() < kSingleAxis ? x.rank() - 1 : axis, form);
}

Placed backFrom(NodeLowering& n, const Lines& lines, int step) {
    return reshapedAlways(n.program, backAlong(n.program, lines.along, step), lines.dims);
}

nolk::TensorShape withoutRows(nolk::TensorShape shape) {
    shape.h = 1;
    return shape;
}

// The logarithm by Halley's iteration; a step changes a bad value by 2, and cubes the error of a good one.
int logarithm(Program& program, int x, float start, int steps) {
    int y = program.clip(x, start, start);
    for (int i = 0; i < steps; ++i) {
        const int e = program.exp(y);
        y = program.add(y, program.times(program.divide(program.sub(x, e), program.add(x, e)), 2.0f));
    }
    return y;
}

}  // namespace

// Abramowitz and Stegun, 7.1.26: erf(x) = 1 - (a1 t + ... + a5 t^5) e^(-x^2), t = 1 / (1 + p x), for x >= 0.
int complementaryError(Program& program, int x) {
    constexpr float kP = 0.3275911f;
    constexpr float kA[] = {0.254829592f, -0.284496736f, 1.421413741f, -1.453152027f, 1.061405429f};
    const int size = program.abs(x);
    const int ones = program.clip(size, 1.0f, 1.0f);
    const int t = program.divide(ones, program.plus(program.times(size, kP), 1.0f));
    int sum = program.plus(program.times(t, kA[4]), kA[3]);
    for (int i = 2; i >= 0; --i) sum = program.plus(program.multiply(sum, t), kA[i]);
    const int square = program.multiply(x, x);
    return program.multiply(program.multiply(sum, t), program.exp(program.times(square, -1.0f)));
}

void lowerLeakyRelu(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, n.program.leakyRelu(x.step, n.number("alpha", 0.01f))));
}

// nolk's prelu finds its slope by the element's place in the whole batch, so it serves a batch of 1 only.
void lowerPRelu(NodeLowering& n) {
    const Placed x = n.x(0);
    const Operand slope = operandOf(n, 1);
    const Floats slopes = slope.tensor ? nullptr : floatsOf(*slope.values);
    const auto all = [&](auto&& holds) { return slopes && std::all_of(slopes->begin(), slopes->end(), holds); };
    if (all([&](float v) { return v == slopes->front(); }))
        return n.result(with(x, n.program.leakyRelu(x.step, slopes->empty() ? 0.0f : slopes->front())));
    const auto scaled = [&](const Placed& y) {
        return operandOf(combined(n.program, Binary::multiply, operandOf(y), slope));
    };
    if (all([](float v) { return v <= 1.0f; }))
        return n.result(combined(n.program, Binary::max, scaled(x), operandOf(x)));
    n.result(combined(n.program, Binary::add, scaled(with(x, negativePart(n.program, x.step))),
                      operandOf(with(x, n.program.relu(x.step)))));
}

void lowerHardSigmoid(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, n.program.hardSigmoid(x.step, n.number("alpha", 0.2f), n.number("beta", 0.5f))));
}

void lowerHardSwish(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, n.program.multiply(x.step, n.program.hardSigmoid(x.step, 1.0f / 6.0f, 0.5f))));
}

void lowerClip(NodeLowering& n) {
    const Placed x = n.x(0);
    const auto limit = [&](std::size_t input, const char* name, float otherwise) {
        if (n.has(input)) {
            const Floats values = n.floats(input, name);
            if (values->size() != 1) n.refuse(std::string(name) + " must be one number", kAgainstOnnx);
            return values->front();
        }
        return n.number(name, otherwise);
    };
    const float min = limit(1, "min", -kLargest), max = limit(2, "max", kLargest);
    // Above both limits the upper one counts, as in min(max(x, lower), upper).
    n.result(with(x, n.program.clip(x.step, std::min(min, max), max)));
}

void lowerElu(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, elu(n.program, x.step, n.number("alpha", 1.0f), 1.0f)));
}

void lowerSelu(NodeLowering& n) {
    const Placed x = n.x(0);
    const float alpha = n.number("alpha", 1.67326319217681884765625f);
    const float gamma = n.number("gamma", 1.05070102214813232421875f);
    n.result(with(x, n.program.times(elu(n.program, x.step, alpha, 1.0f), gamma)));
}

void lowerCelu(NodeLowering& n) {
    const Placed x = n.x(0);
    const float alpha = n.number("alpha", 1.0f);
    n.result(with(x, elu(n.program, x.step, alpha, 1.0f / alpha)));
}

void lowerSoftsign(NodeLowering& n) {
    const Placed x = n.x(0);
    n.result(with(x, n.program.divide(x.step, n.program.plus(n.program.abs(x.step), 1.0f))));
}

// erf(x) = sign(x) * (1 - erfc(|x|)); the sign of a number below 1e-30, whose erf is as small, may be a fraction.
void lowerErf(NodeLowering& n) {
    const Placed x = n.x(0);
    const int size = n.program.plus(n.program.times(complementaryError(n.program, x.step), -1.0f), 1.0f);
    const int sign = n.program.clip(n.program.times(x.step, 1e30f), -1.0f, 1.0f);
    n.result(with(x, n.program.multiply(size, sign)));
}

// x * Phi(x) = max(x, 0) - |x| / 2 * erfc(|x| / sqrt 2), which needs no sign and loses nothing to differences.
void lowerGelu(NodeLowering& n) {
    const Placed x = n.x(0);
    Program& p = n.program;
    if (n.text("approximate", "none") == "tanh") {
        const int cube = p.multiply(p.multiply(x.step, x.step), x.step);
        const int inner = p.times(p.add(x.step, p.times(cube, 0.044715f)), 0.7978845608028654f);
        return n.result(with(x, p.multiply(p.times(x.step, 0.5f), p.plus(p.tanh(inner), 1.0f))));
    }
    const int tail = complementaryError(p, p.times(x.step, 0.70710678118654752f));
    n.result(with(x, p.sub(p.relu(x.step), p.multiply(p.times(p.abs(x.step), 0.5f), tail))));
}

// x * tanh(ln(1 + e^x)) = x * w / (w + 2), w = e^x (e^x + 2); beyond 20 the fraction is 1.
void lowerMish(NodeLowering& n) {
    const Placed x = n.x(0);
    Program& p = n.program;
    const int e = p.exp(p.clip(x.step, -kLargest, 20.0f));
    const int w = p.multiply(e, p.plus(e, 2.0f));
    n.result(with(x, p.multiply(x.step, p.divide(w, p.plus(w, 2.0f)))));
}

// ln(1 + e^x) = max(x, 0) + ln(1 + e^-|x|), a logarithm of numbers from 1 to 2.
void lowerSoftplus(NodeLowering& n) {
    const Placed x = n.x(0);
    Program& p = n.program;
    const int rest = p.plus(p.exp(p.times(p.abs(x.step), -1.0f)), 1.0f);
    n.result(with(x, p.add(p.relu(x.step), logarithm(p, rest, 0.35f, 3))));
}

void lowerSoftmax(NodeLowering& n) {
    const Lines lines = softmaxLines(n, LineForm::any);
    n.result(backFrom(n, lines, n.program.softmax(lines.along.step, lines.along.line)));
}

void lowerLogSoftmax(NodeLowering& n) {
    const Lines lines = softmaxLines(n, LineForm::rows);
    Program& p = n.program;
    const int x = lines.along.step;
    const nolk::TensorShape one = withoutRows(p.shapeOf(x));
    const int shifted = p.sub(x, p.reduce(x, one, nolk::BasicOp::maximum));
    const int sum = p.reduce(p.exp(shifted), one, nolk::BasicOp::sum);
    // The sum lies between 1 and the number of values.
    n.result(backFrom(n, lines, p.sub(shifted, logarithm(p, sum, 4.0f, 10))));
}

}  // namespace convert
