#include "fast/kernels/elementary.h"
#include "fast/kernels/levelKernels.h"
#include "fast/kernels/sums.h"

namespace NOLK_FAST_LEVEL {

namespace {

// An operand as a block that is the same for all blocks of x, or at a pointer that moves with x.
struct Operand {
    const float* moving;
    Vector fixed[kParts];
};

Operand operandOf(const float* p, FastOperand mode) {
    Operand operand{mode == FastOperand::elements ? p : nullptr, {}};
    for (int i = 0; i < kParts; ++i) {
        if (mode == FastOperand::block) operand.fixed[i] = load(p + i * kLanes);
        if (mode == FastOperand::scalar) operand.fixed[i] = broadcast(*p);
    }
    return operand;
}

// y = f(x, index of the vector's first element, number of the vector in its block, the function that loads operands).
template <typename Function>
inline void forVectors(const FastStepCall& call, Function f) {
    const int whole = call.count - call.count % kFastBlock;
    for (int i = 0; i < whole; i += kFastBlock)
        for (int part = 0; part < kParts; ++part) {
            const int at = i + part * kLanes;
            store(call.y + at, f(load(call.x + at), at, part, [](const float* p) { return load(p); }));
        }
    for (int left = call.count - whole, part = 0; left > 0; left -= kLanes, ++part) {
        const int at = call.count - left, lanes = left < kLanes ? left : kLanes;
        const auto loadLanes = [lanes](const float* p) { return loadPart(p, lanes); };
        storePart(call.y + at, f(loadLanes(call.x + at), at, part, loadLanes), lanes);
    }
}

// y = f(x)
template <typename Function>
void unary(const FastStepCall& call, Function f) {
    forVectors(call, [f](Vector x, int, int, auto) { return f(x); });
}

// y = f(x, operand)
template <typename Function>
void binary(const FastStepCall& call, Function f) {
    const Operand a = operandOf(call.operand, call.mode);
    if (a.moving)
        forVectors(call, [f, &a](Vector x, int at, int, auto read) { return f(x, read(a.moving + at)); });
    else
        forVectors(call, [f, &a](Vector x, int, int part, auto) { return f(x, a.fixed[part]); });
}

// y = x * operand + secondOperand
void scaleAdd(const FastStepCall& call) {
    const Operand a = operandOf(call.operand, call.mode), b = operandOf(call.secondOperand, call.mode);
    if (a.moving)
        forVectors(call, [&a, &b](Vector x, int at, int, auto read) {
            return fma(x, read(a.moving + at), read(b.moving + at));
        });
    else
        forVectors(call, [&a, &b](Vector x, int, int part, auto) { return fma(x, a.fixed[part], b.fixed[part]); });
}

// x where it is not negative, which includes -0 and NaN.
Vector unlessNegative(Vector x, Vector otherwise) { return select(x < broadcast(0.0f), otherwise, x); }

Vector hardSigmoid(Vector x, Vector slope, Vector offset) { return limited(fma(x, slope, offset), 0.0f, 1.0f); }

}  // namespace

void step(const FastStepCall& call) {
    const Vector p0 = broadcast(call.step.p0), p1 = broadcast(call.step.p1);
    switch (call.step.kind) {
        case FastStepKind::relu:
            return unary(call, [](Vector x) { return largerOr(broadcast(0.0f), x); });
        case FastStepKind::sigmoid:
            return unary(call, [](Vector x) { return sigmoid(x); });
        case FastStepKind::exp:
            return unary(call, [](Vector x) { return exp(x); });
        case FastStepKind::clip:
            // p0 may be larger than p1.
            return unary(call, [p0, p1](Vector x) { return select(x < p0, p0, smallerOr(p1, x)); });
        case FastStepKind::hardSigmoid:
            return unary(call, [p0, p1](Vector x) { return hardSigmoid(x, p0, p1); });
        case FastStepKind::abs:
            return unary(call, [](Vector x) { return withSignOf(x, broadcast(0.0f)); });
        case FastStepKind::leakyRelu:
            return unary(call, [p0](Vector x) { return unlessNegative(x, x * p0); });
        case FastStepKind::tanh:
            return unary(call, [](Vector x) { return tanh(x); });
        case FastStepKind::prelu:
            return binary(call, [](Vector x, Vector a) { return unlessNegative(x, x * a); });
        case FastStepKind::add:
            return binary(call, [](Vector x, Vector a) { return x + a; });
        case FastStepKind::sub:
            return binary(call, [](Vector x, Vector a) { return x - a; });
        case FastStepKind::mul:
            return binary(call, [](Vector x, Vector a) { return x * a; });
        case FastStepKind::div:
            return binary(call, [](Vector x, Vector a) { return x / a; });
        case FastStepKind::max:
            return binary(call, [](Vector x, Vector a) { return largerOr(x, a); });
        case FastStepKind::subFrom:
            return binary(call, [](Vector x, Vector a) { return a - x; });
        case FastStepKind::divFrom:
            return binary(call, [](Vector x, Vector a) { return a / x; });
        case FastStepKind::maxOf:
            return binary(call, [](Vector x, Vector a) { return largerOr(a, x); });
        case FastStepKind::silu:
            return unary(call, [](Vector x) { return x * sigmoid(x); });
        case FastStepKind::hardSwish:
            return unary(call, [p0, p1](Vector x) { return x * hardSigmoid(x, p0, p1); });
        case FastStepKind::scaleAdd:
            return scaleAdd(call);
    }
}

}  // namespace NOLK_FAST_LEVEL
