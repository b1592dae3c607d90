#include <gtest/gtest.h>

#include <cmath>

#include "fast/kernels/FastKernels.h"
#include "fast/plainArithmetic.h"
#include "support/values.h"

namespace {

std::size_t at(std::ptrdiff_t offset) { return static_cast<std::size_t>(offset); }

struct Shape {
    int outer, extent, inner;
    int count() const { return outer * extent * inner; }
};

// Every extent up to beyond two blocks, and columns that leave every rest of a strip.
std::vector<Shape> shapes() {
    std::vector<Shape> all;
    for (int extent = 1; extent <= 37; ++extent) all.push_back({3, extent, 1});
    all.push_back({1, 1000, 1});
    for (int inner = 2; inner <= 70; ++inner) all.push_back({2, 1 + inner % 5, inner});
    all.push_back({1, 33, 200});
    return all;
}

// Calls f(values of a line, index of its first value, distance between its values) for every line.
template <typename Function>
void forLines(const Shape& s, const std::vector<float>& x, Function f) {
    for (int o = 0; o < s.outer; ++o)
        for (int i = 0; i < s.inner; ++i) {
            const std::ptrdiff_t first = std::ptrdiff_t{o} * s.extent * s.inner + i;
            std::vector<float> line;
            for (int k = 0; k < s.extent; ++k) line.push_back(x[at(first + k * s.inner)]);
            f(line, first, s.inner);
        }
}

// Checks call(x, y) against line(values) for every line, in place and not.
template <typename Line, typename Call>
void expectLines(const Shape& s, const std::vector<float>& x, Line line, Call call) {
    std::vector<float> expected(x.size()), y(x.size()), same = x;
    forLines(s, x, [&](std::vector<float> values, std::ptrdiff_t first, std::ptrdiff_t step) {
        line(values);
        for (std::size_t k = 0; k < values.size(); ++k) expected[at(first) + k * at(step)] = values[k];
    });
    call(x.data(), y.data());
    expectSameBits(y, expected);
    call(same.data(), same.data());
    expectSameBits(same, expected);
}

// Calls f(kernels, shape, values) for everything, with ordinary values and with special ones.
template <typename Function>
void forAll(Function f) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (const Shape& s : shapes())
            for (const bool special : {false, true}) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", [" << s.outer << ", " << s.extent << ", "
                                                << s.inner << "], special values: " << special);
                const auto seed = static_cast<std::uint32_t>(s.extent + s.inner);
                f(*kernels, s, special ? valuesWithSpecials(seed, at(s.count())) : Values(seed).reals(at(s.count())));
            }
}

float fromFirst(const std::vector<float>& line, bool (*better)(float x, float best)) {
    return plain::chain(line, line[0], [better](float best, float x) { return better(x, best) ? x : best; });
}
bool isLarger(float x, float best) { return x > best; }
bool isSmaller(float x, float best) { return x < best; }

// A sum along neighbours has 16 partial sums, one over columns is a chain.
float sumOf(const Shape& s, const std::vector<float>& line, float start) {
    return s.inner == 1 ? plain::reduce16(line, start, plain::plus, plain::plus)
                        : plain::chain(line, start, plain::plus);
}

TEST(FastSoftmax, EqualsPlainCodeOnEveryInstructionSet) {
    forAll([](const FastKernels& kernels, const Shape& s, const std::vector<float>& x) {
        const auto softmax = [&s](std::vector<float>& line) {
            const float max = fromFirst(line, isLarger);
            for (float& v : line) v = plain::exp(v - max);
            const float sum = sumOf(s, line, 0.0f);
            for (float& v : line) v /= sum;
        };
        expectLines(s, x, softmax, [&](const float* from, float* to) {
            kernels.softmax({from, to, s.outer, s.extent, s.inner});
        });
    });
}

TEST(FastL2Normalization, EqualsPlainCodeOnEveryInstructionSet) {
    forAll([](const FastKernels& kernels, const Shape& s, const std::vector<float>& x) {
        const auto addSquare = [](float sum, float v) { return std::fma(v, v, sum); };
        const auto normalize = [&](std::vector<float>& line) {
            const float norm = std::sqrt(s.inner == 1 ? plain::reduce16(line, 0.0f, addSquare, plain::plus)
                                                      : plain::chain(line, 0.0f, addSquare));
            for (float& v : line) v /= norm;
        };
        expectLines(s, x, normalize, [&](const float* from, float* to) {
            kernels.normalizeL2({from, to, s.outer, s.extent, s.inner});
        });
    });
}

TEST(FastRowNormalization, EqualsPlainCodeOnEveryInstructionSet) {
    const std::vector<float> scale = Values(1).reals(3), bias = Values(2).reals(3);
    forAll([&](const FastKernels& kernels, const Shape& s, const std::vector<float>& x) {
        if (s.inner > 1) return;
        std::size_t row = 0;
        const auto normalize = [&](std::vector<float>& line) {
            line = plain::normalized(line, scale[row], bias[row], 0.1f);
            ++row;
        };
        expectLines(s, x, normalize, [&](const float* from, float* to) {
            kernels.normalizeRows({from, to, s.outer, s.extent, scale.data(), bias.data(), 0.1f});
        });
    });
}

// The two formulas of the built-in layer: for channels alone, and the other one.
float reduced(nolk::BasicOp op, bool overChannels, const Shape& s, const std::vector<float>& line) {
    const auto extent = static_cast<float>(s.extent);
    float sum = sumOf(s, line, -0.0f);
    // Over columns, the sum that starts again after NaN is the same chain.
    if (!overChannels && std::isnan(sum)) sum = plain::chain(line, plain::kNan, plain::plusOrNext);
    switch (op) {
        case nolk::BasicOp::maximum:
            return overChannels ? fromFirst(line, isLarger) : plain::chain(line, plain::kNan, plain::largerOrNext);
        case nolk::BasicOp::minimum:
            return overChannels ? fromFirst(line, isSmaller) : plain::chain(line, plain::kNan, plain::smallerOrNext);
        case nolk::BasicOp::mean:
            return overChannels ? sum * (1.0f / extent) : sum / extent;
        case nolk::BasicOp::sum:
            return sum;
    }
    return 0.0f;
}

TEST(FastReduction, EqualsPlainCodeOnEveryInstructionSet) {
    forAll([](const FastKernels& kernels, const Shape& s, const std::vector<float>& x) {
        for (const nolk::BasicOp op :
             {nolk::BasicOp::maximum, nolk::BasicOp::mean, nolk::BasicOp::sum, nolk::BasicOp::minimum})
            for (const bool overChannels : {false, true}) {
                std::vector<float> y(at(s.outer) * at(s.inner)), expected;
                forLines(s, x, [&](const std::vector<float>& line, std::ptrdiff_t, std::ptrdiff_t) {
                    expected.push_back(reduced(op, overChannels, s, line));
                });
                kernels.reduce({op, overChannels, x.data(), y.data(), s.outer, s.extent, s.inner});
                // Along neighbours, the sign of a largest or smallest 0 may be that of any of the zeros.
                for (std::size_t i = 0; i < y.size(); ++i)
                    if (s.inner == 1 && y[i] == 0.0f && expected[i] == 0.0f) y[i] = expected[i];
                expectSameBits(y, expected);
            }
    });
}

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

TEST(FastTranspose, MovesEveryElementOnEveryInstructionSet) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (int rows = 1; rows <= 35; ++rows)
            for (int columns = 1; columns <= 35; ++columns) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", " << rows << " x " << columns);
                const int xRow = columns + rows % 2, yRow = rows + columns % 2;
                const std::vector<float> x = Values(1).reals(at((rows - 1) * xRow + columns));
                std::vector<float> y = Values(2).reals(at((columns - 1) * yRow + rows)), expected = y;
                for (int r = 0; r < rows; ++r)
                    for (int k = 0; k < columns; ++k) expected[at(k * yRow + r)] = x[at(r * xRow + k)];
                kernels->transpose({x.data(), xRow, y.data(), yRow, rows, columns});
                expectSameBits(y, expected);
            }
}

}  // namespace
