#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "fast/kernels/FastKernels.h"
#include "fast/plainArithmetic.h"
#include "support/values.h"

namespace {

std::size_t at(std::ptrdiff_t offset) { return static_cast<std::size_t>(offset); }

// A plane of blocks whose rows may have a gap between them; values outside the plane must stay.
struct Plane {
    Plane(int rowCount, int pixelCount, int gap, std::uint32_t seed)
        : rows(rowCount),
          pixels(pixelCount),
          row(std::ptrdiff_t{pixelCount + gap} * kFastBlock),
          values(valuesWithSpecials(seed, at(rowCount * row))) {}
    float& operator()(int h, int p, int lane) { return values[at(h * row + p * kFastBlock + lane)]; }
    std::vector<float> lane(int number) {
        std::vector<float> all;
        for (int h = 0; h < rows; ++h)
            for (int p = 0; p < pixels; ++p) all.push_back((*this)(h, p, number));
        return all;
    }

    int rows, pixels;
    std::ptrdiff_t row;
    std::vector<float> values;
};

// Replaces NaN and what may become NaN.
void makeOrdinary(Plane& plane) {
    Values values(5);
    for (float& v : plane.values)
        if (!(std::fabs(v) < 2.0f)) v = values.real();
}

float pooled(Plane& x, const FastPool& c, int h, int p, int lane) {
    const int top = h * c.stride.h - c.top, left = p * c.stride.w - c.left;
    float max = -1.0e37f, sum = 0.0f;
    int count = 0;
    for (int i = std::max(top, 0); i < std::min(top + c.kernel.h, x.rows); ++i)
        for (int k = std::max(left, 0); k < std::min(left + c.kernel.w, x.pixels); ++k, ++count) {
            max = x(i, k, lane) > max ? x(i, k, lane) : max;
            sum += x(i, k, lane);
        }
    return c.type == POOL_AVG ? sum / static_cast<float>(count) : max;
}

TEST(FastPool, EqualsTheWindowsOnEveryInstructionSet) {
    const struct {
        int xRows, xPixels, rows, pixels;
        nolk::DimsHW kernel, stride;
        int top, left;
    } cases[] = {
        {4, 4, 2, 2, {2, 2}, {2, 2}, 0, 0},     {7, 25, 4, 13, {3, 3}, {2, 2}, 1, 1},
        {5, 7, 6, 3, {3, 2}, {1, 3}, 2, 0},     {1, 1, 1, 1, {1, 1}, {1, 1}, 0, 0},
        {3, 3, 5, 2, {2, 2}, {1, 1}, 3, 0},  // the first windows lie wholly outside
        {3, 9, 1, 9, {3, 3}, {0, 0}, 0, 0},     {3, 3, 4, 4, {0, 0}, {1, 1}, 0, 0},
        {3, 3, 2, 5, {1, 1}, {11, 3}, 9, 0},    {3, 3, 1, 1, {1, 1}, {1, 1}, -1, -1},
        {9, 20, 9, 20, {13, 13}, {1, 1}, 6, 6},
    };
    for (const FastKernels* kernels : supportedFastKernels())
        for (const auto& c : cases)
            for (const PoolingType type : {POOL_MAX, POOL_AVG}) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", case " << &c - cases << ", type " << type);
                Plane x(c.xRows, c.xPixels, 1, 21), y(c.rows, c.pixels, 2, 22);
                FastPool call{type, x.values.data(), x.row,    c.xRows,  c.xPixels, nullptr, y.row, 0,
                              0,    c.pixels,        c.kernel, c.stride, c.top,     c.left};
                Plane expected = y;
                for (int h = 0; h < c.rows; ++h)
                    for (int p = 0; p < c.pixels; ++p)
                        for (int lane = 0; lane < kFastBlock; ++lane)
                            expected(h, p, lane) = pooled(x, call, h, p, lane);
                // In two parts, as two threads would do it.
                call.rows = c.rows / 2;
                call.y = y.values.data();
                kernels->pool(call);
                call.firstRow = call.rows;
                call.rows = c.rows - call.rows;
                call.y += call.firstRow * call.yRow;
                kernels->pool(call);
                expectSameBits(y.values, expected.values);
            }
}

float reduced(nolk::BasicOp op, const std::vector<float>& x) {
    switch (op) {
        case nolk::BasicOp::maximum:
            return plain::reduce16(x, plain::kNan, plain::largerOrNext, plain::largerOrNext);
        case nolk::BasicOp::minimum:
            return plain::reduce16(x, plain::kNan, plain::smallerOrNext, plain::smallerOrNext);
        case nolk::BasicOp::mean:
            return plain::restartingSum(x) / static_cast<float>(x.size());
        case nolk::BasicOp::sum:
            return plain::restartingSum(x);
    }
    return 0.0f;
}

constexpr nolk::BasicOp kOps[] = {nolk::BasicOp::maximum, nolk::BasicOp::mean, nolk::BasicOp::sum,
                                  nolk::BasicOp::minimum};

TEST(FastPlaneReduction, HasSixteenPartialResultsOnEveryInstructionSet) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (int rows = 1; rows <= 5; ++rows)
            for (int pixels = 1; pixels <= 37; ++pixels)
                for (const bool special : {false, true}) {
                    SCOPED_TRACE(testing::Message() << kernels->name << ", " << rows << " x " << pixels);
                    Plane x(rows, pixels, pixels % 2, static_cast<std::uint32_t>(pixels));
                    if (!special) makeOrdinary(x);
                    for (const nolk::BasicOp op : kOps) {
                        std::vector<float> y(kFastBlock), expected;
                        for (int lane = 0; lane < kFastBlock; ++lane) expected.push_back(reduced(op, x.lane(lane)));
                        kernels->reducePlane({op, x.values.data(), x.row, rows, pixels, y.data()});
                        expectSameBits(y, expected);
                    }
                }
}

TEST(FastPlaneNormalization, EqualsPlainCodeOnEveryInstructionSet) {
    const std::vector<float> scale = Values(1).reals(kFastBlock), bias = Values(2).reals(kFastBlock);
    for (const FastKernels* kernels : supportedFastKernels())
        for (int rows = 1; rows <= 3; ++rows)
            for (int pixels = 1; pixels <= 33; ++pixels)
                for (const bool inPlace : {false, true}) {
                    SCOPED_TRACE(testing::Message() << kernels->name << ", " << rows << " x " << pixels);
                    Plane x(rows, pixels, pixels % 3, 7), other(rows, pixels, 1, 8);
                    makeOrdinary(x);
                    Plane& y = inPlace ? x : other;
                    Plane expected = y;
                    for (int lane = 0; lane < kFastBlock; ++lane) {
                        const std::vector<float> values =
                            plain::normalized(x.lane(lane), scale[at(lane)], bias[at(lane)], 1e-5f);
                        for (int i = 0; i < rows * pixels; ++i) expected(i / pixels, i % pixels, lane) = values[at(i)];
                    }
                    kernels->normalizePlane({x.values.data(), x.row, y.values.data(), y.row, rows, pixels, scale.data(),
                                             bias.data(), 1e-5f});
                    expectSameBits(y.values, expected.values);
                }
}

TEST(FastResizeRow, EqualsTheBuiltInFormulaOnEveryInstructionSet) {
    constexpr int kPixels = 9, kSource = 5;
    const int left[kPixels] = {0, 0, 1, 3, 2, 2, 3, 3, 3}, right[kPixels] = {1, 1, 2, 4, 3, 3, 4, 4, 4};
    const float weights[kPixels] = {0.0f, 0.25f, 0.3f, 1.0f, 0.7f, 0.1f, 0.9f, 0.5f, 1.0f};
    Plane x(2, kSource, 0, 9);
    const auto column = [&](int row, int p, int lane, bool hasLeft) {
        const float first = hasLeft ? x(row, left[p], lane) : 0.0f;
        return (1.0f - weights[p]) * first + weights[p] * x(row, right[p], lane);
    };
    for (const FastKernels* kernels : supportedFastKernels())
        for (const bool hasRow : {true, false})
            for (const bool hasLeft : {true, false}) {
                SCOPED_TRACE(testing::Message() << kernels->name << ", " << hasRow << ", " << hasLeft);
                Plane y(1, kPixels, 1, 10), expected = y;
                const float b = hasRow ? 0.375f : 1.0f;
                for (int p = 0; p < kPixels; ++p)
                    for (int lane = 0; lane < kFastBlock; ++lane)
                        expected(0, p, lane) = (1.0f - b) * (hasRow ? column(0, p, lane, hasLeft) : 0.0f) +
                                               b * column(1, p, lane, hasLeft);
                const float* const rows = x.values.data();
                kernels->resizeRow({hasRow ? rows : nullptr, rows + x.row, b, hasLeft ? left : nullptr, right, weights,
                                    y.values.data(), kPixels});
                expectSameBits(y.values, expected.values);
                for (int p = 0; p < kPixels; ++p)
                    for (int lane = 0; lane < kFastBlock; ++lane) expected(0, p, lane) = x(0, left[p], lane);
                kernels->resizeRow({rows, nullptr, 0.0f, left, nullptr, nullptr, y.values.data(), kPixels});
                expectSameBits(y.values, expected.values);
            }
}

// The plain tensor ends with its last element, which the sanitizers watch.
TEST(FastRelayout, MovesEveryElementOnEveryInstructionSet) {
    for (const FastKernels* kernels : supportedFastKernels())
        for (int channels = 1; channels <= 35; ++channels)
            for (int rows = 1; rows <= 3; rows += 2)
                for (int pixels = 1; pixels <= 33; ++pixels) {
                    SCOPED_TRACE(testing::Message()
                                 << kernels->name << ", " << channels << ", " << rows << " x " << pixels);
                    const int gap = pixels % 2;
                    const int blocks = (channels + kFastBlock - 1) / kFastBlock;
                    FastRelayout c;
                    c.channels = channels, c.rows = rows, c.pixels = pixels;
                    c.plainRow = pixels + gap, c.plainPlane = rows * c.plainRow;
                    c.blockRow = std::ptrdiff_t{pixels + gap} * kFastBlock, c.block = rows * c.blockRow;
                    std::vector<float> plain = Values(3).reals(at(channels * c.plainPlane - gap));
                    std::vector<float> packed = Values(4).reals(at(blocks * c.block)), expected = packed;
                    std::vector<float> back = Values(5).reals(plain.size()), expectedBack = back;
                    for (int k = 0; k < blocks * kFastBlock; ++k)
                        for (int h = 0; h < rows; ++h)
                            for (int p = 0; p < pixels; ++p) {
                                const std::ptrdiff_t source = k * c.plainPlane + h * c.plainRow + p;
                                const std::ptrdiff_t place =
                                    k / kFastBlock * c.block + h * c.blockRow + p * kFastBlock + k % kFastBlock;
                                expected[at(place)] = k < channels ? plain[at(source)] : 0.0f;
                                if (k < channels) expectedBack[at(source)] = plain[at(source)];
                            }
                    c.plain = plain.data();
                    c.blocks = packed.data();
                    kernels->toBlocks(c);
                    expectSameBits(packed, expected);
                    c.plain = back.data();
                    kernels->toPlain(c);
                    expectSameBits(back, expectedBack);
                }
}

}  // namespace
