#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "fast/kernels/FastKernels.h"
#include "fast/plainArithmetic.h"
#include "support/effort.h"
#include "support/values.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
using Kind = FastStepKind;

float hardSigmoid(float x, float p0, float p1) {
    const float t = std::fma(x, p0, p1);
    return t < 0.0f ? 0.0f : t > 1.0f ? 1.0f : t;
}

// Plain code for every kind; a and b are the operands.
const struct {
    Kind kind;
    float (*f)(float x, float p0, float p1, float a, float b);
} kSteps[] = {
    {Kind::relu, [](float x, float, float, float, float) { return x < 0.0f ? 0.0f : x; }},
    {Kind::sigmoid, [](float x, float, float, float, float) { return plain::sigmoid(x); }},
    {Kind::exp, [](float x, float, float, float, float) { return plain::exp(x); }},
    {Kind::clip, [](float x, float p0, float p1, float, float) { return x < p0   ? p0
                                                                        : x > p1 ? p1
                                                                                 : x; }},
    {Kind::hardSigmoid, [](float x, float p0, float p1, float, float) { return hardSigmoid(x, p0, p1); }},
    {Kind::abs, [](float x, float, float, float, float) { return std::fabs(x); }},
    {Kind::leakyRelu, [](float x, float p0, float, float, float) { return x < 0.0f ? x * p0 : x; }},
    {Kind::tanh, [](float x, float, float, float, float) { return plain::tanh(x); }},
    {Kind::prelu, [](float x, float, float, float a, float) { return x < 0.0f ? x * a : x; }},
    {Kind::add, [](float x, float, float, float a, float) { return x + a; }},
    {Kind::sub, [](float x, float, float, float a, float) { return x - a; }},
    {Kind::mul, [](float x, float, float, float a, float) { return x * a; }},
    {Kind::div, [](float x, float, float, float a, float) { return x / a; }},
    {Kind::max, [](float x, float, float, float a, float) { return x > a ? x : a; }},
    {Kind::subFrom, [](float x, float, float, float a, float) { return a - x; }},
    {Kind::divFrom, [](float x, float, float, float a, float) { return a / x; }},
    {Kind::maxOf, [](float x, float, float, float a, float) { return a > x ? a : x; }},
    {Kind::silu, [](float x, float, float, float, float) { return x * plain::sigmoid(x); }},
    {Kind::hardSwish, [](float x, float p0, float p1, float, float) { return x * hardSigmoid(x, p0, p1); }},
    {Kind::scaleAdd, [](float x, float, float, float a, float b) { return std::fma(x, a, b); }},
};

// The second pair of limits is in the wrong order.
const float kParameters[][2] = {{0.2f, 0.5f}, {0.75f, -0.5f}};

TEST(FastStep, EqualsPlainCodeOnEveryInstructionSet) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (const auto& step : kSteps)
            for (const FastOperand mode : {FastOperand::elements, FastOperand::block, FastOperand::scalar})
                for (int count = 0; count <= 67; ++count) {
                    SCOPED_TRACE(testing::Message() << kernels->name << ", step " << static_cast<int>(step.kind)
                                                    << ", mode " << static_cast<int>(mode) << ", count " << count);
                    const float* const p = kParameters[count % 2];
                    const auto size = static_cast<std::size_t>(count);
                    const std::size_t operands = mode == FastOperand::elements ? size
                                                 : mode == FastOperand::block  ? std::size_t{16}
                                                                               : std::size_t{1};
                    std::vector<float> x = valuesWithSpecials(3, size), a = valuesWithSpecials(4, operands),
                                       b = valuesWithSpecials(5, operands), y(size), expected;
                    for (std::size_t i = 0; i < size; ++i)
                        expected.push_back(step.f(x[i], p[0], p[1], a[i % operands], b[i % operands]));
                    FastStepCall call{{step.kind, p[0], p[1]}, x.data(), y.data(), count, mode, a.data(), b.data()};
                    kernels->step(call);
                    expectSameBits(y, expected);
                    if (mode == FastOperand::elements) {
                        std::vector<float> overwritten = a;
                        call.operand = call.y = overwritten.data();
                        kernels->step(call);
                        expectSameBits(overwritten, expected);
                        call.operand = a.data();
                    }
                    call.y = x.data();
                    kernels->step(call);
                    expectSameBits(x, expected);
                }
}

float call(const FastKernels& kernels, Kind kind, float x) {
    float y = 0.0f;
    kernels.step({{kind, 0.0f, 0.0f}, &x, &y, 1, FastOperand::elements, nullptr, nullptr});
    return y;
}

// Arguments and results by turns. The first float whose exponential is too large is 0x1.62e43p6.
TEST(FastStep, LimitsOfExpSigmoidAndTanh) {
    const float smallest = std::numeric_limits<float>::denorm_min(), largest = std::numeric_limits<float>::max();
    const std::map<Kind, std::vector<float>> points = {
        {Kind::exp,
         {0.0f,      1.0f,      -0.0f,    1.0f,     smallest, 1.0f, 0x1.62e43p6f, kInfinity, largest,    kInfinity,
          kInfinity, kInfinity, -103.97f, smallest, -103.98f, 0.0f, -largest,     0.0f,      -kInfinity, 0.0f}},
        {Kind::sigmoid, {0.0f, 0.5f, 100.0f, 1.0f, kInfinity, 1.0f, -100.0f, 0.0f, -kInfinity, 0.0f}},
        {Kind::tanh,
         {0.0f, 0.0f, -0.0f, -0.0f, smallest, smallest, -0x1p-40f, -0x1p-40f, 10.0f, 1.0f, -kInfinity, -1.0f}}};
    for (const FastKernels* kernels : supportedFastKernels()) {
        for (const auto& [kind, pairs] : points)
            for (std::size_t i = 0; i < pairs.size(); i += 2) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", step " << static_cast<int>(kind) << ", " << i);
                expectSameBits({call(*kernels, kind, pairs[i])}, {pairs[i + 1]});
            }
        EXPECT_LT(call(*kernels, Kind::exp, 0x1.62e42ep6f), kInfinity);
        for (const Kind kind : {Kind::exp, Kind::sigmoid, Kind::tanh})
            EXPECT_TRUE(std::isnan(call(*kernels, kind, plain::kNan)));
    }
}

// Units in the last place of a float next to y.
double error(float actual, double y) {
    int exponent = 0;
    std::frexp(y, &exponent);
    return std::fabs(static_cast<double>(actual) - y) / std::ldexp(1.0, std::max(exponent - 24, -149));
}

// Floats whose bits are a prime apart, of every size and sign.
TEST(FastStep, ErrorsOfExpSigmoidAndTanhStayWithinTheirBounds) {
    const struct {
        Kind kind;
        float (*plainCode)(float);
        double (*f)(double);
        float low, high;
        double bound;
    } functions[] = {
        {Kind::exp, plain::exp, [](double x) { return std::exp(x); }, -110.0f, 0x1.62e42ep6f, 1.02},
        {Kind::sigmoid, plain::sigmoid, [](double x) { return 1.0 / (std::exp(-x) + 1.0); }, -0x1.62e42ep6f, kInfinity,
         2.49},
        {Kind::tanh, plain::tanh, [](double x) { return std::tanh(x); }, -kInfinity, kInfinity, 2.61},
    };
    const std::uint64_t step = std::uint64_t{20011} * 100 / static_cast<std::uint64_t>(effort());
    std::vector<float> x, y;
    for (std::uint64_t bits = 0; bits < std::uint64_t{1} << 32; bits += step) {
        const auto word = static_cast<std::uint32_t>(bits);
        float value = 0.0f;
        std::memcpy(&value, &word, sizeof value);
        if (!std::isnan(value)) x.push_back(value);
    }
    y.resize(x.size());
    for (const FastKernels* kernels : supportedFastKernels())
        for (const auto& f : functions) {
            const int count = static_cast<int>(x.size());
            kernels->step({{f.kind, 0.0f, 0.0f}, x.data(), y.data(), count, FastOperand::elements, nullptr, nullptr});
            std::vector<float> expected;
            for (const float v : x) expected.push_back(f.plainCode(v));
            expectSameBits(y, expected);
            double largest = 0.0;
            for (std::size_t i = 0; i < x.size(); ++i)
                if (x[i] >= f.low && x[i] <= f.high)
                    largest = std::max(largest, error(y[i], f.f(static_cast<double>(x[i]))));
            EXPECT_LE(largest, f.bound) << kernels->name << ", step " << static_cast<int>(f.kind);
        }
}

std::size_t at(int place) { return static_cast<std::size_t>(place); }

TEST(FastLstmCell, EqualsPlainCodeOnEveryInstructionSet) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (int count = 1; count <= 37; ++count) {
            SCOPED_TRACE(testing::Message() << kernels->name << ", " << count);
            const int stride = count + 3;
            std::vector<float> gates = Values(7).reals(at(3 * stride + count));
            for (float& v : gates) v *= 8.0f;
            std::vector<float> cell = Values(8).reals(at(count)), hidden(cell.size()), cells, expected;
            for (int i = 0; i < count; ++i) {
                const auto gate = [&](int number) { return gates[at(number * stride + i)]; };
                cells.push_back(plain::sigmoid(gate(2)) * cell[at(i)] + plain::sigmoid(gate(0)) * plain::tanh(gate(3)));
                expected.push_back(plain::sigmoid(gate(1)) * plain::tanh(cells.back()));
            }
            kernels->lstmCell({gates.data(), stride, cell.data(), hidden.data(), count});
            expectSameBits(cell, cells);
            expectSameBits(hidden, expected);
        }
}

}  // namespace
