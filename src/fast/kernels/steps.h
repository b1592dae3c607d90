// Arguments of the kernel for element-wise operations. NaN, infinities and -0 behave as in the built-in layers.
#pragma once

#include <cstdint>

enum class FastStepKind : std::int32_t {
    relu,         // x < 0 ? 0 : x
    sigmoid,      // 1 / (exp(-x) + 1)
    exp,          // e^x
    clip,         // x < p0 ? p0 : x > p1 ? p1 : x
    hardSigmoid,  // p0 * x + p1, rounded once, limited to [0, 1]
    abs,          // |x|
    leakyRelu,    // x < 0 ? x * p0 : x
    tanh,         // tanh(x)
    prelu,        // x < 0 ? x * operand : x
    add,          // x + operand
    sub,          // x - operand
    mul,          // x * operand
    div,          // x / operand
    max,          // x > operand ? x : operand
    subFrom,      // operand - x
    divFrom,      // operand / x
    maxOf,        // operand > x ? operand : x
    silu,         // x * sigmoid(x)
    hardSwish,    // x * hardSigmoid(x) with p0 and p1
    scaleAdd      // x * operand + secondOperand, rounded once
};

struct FastStep {
    FastStepKind kind = FastStepKind::relu;
    float p0 = 0.0f, p1 = 0.0f;
};

// How an operand follows x.
enum class FastOperand : std::int32_t {
    elements,  // one value for each element
    block,     // 16 values, repeated
    scalar     // one value
};

// y[i] = step(x[i], operand) for count elements; any count. y may be x or the operand.
struct FastStepCall {
    FastStep step;
    const float* x = nullptr;
    float* y = nullptr;
    int count = 0;
    FastOperand mode = FastOperand::elements;
    const float* operand = nullptr;
    const float* secondOperand = nullptr;
};
