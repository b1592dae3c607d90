#include <cmath>
#include <limits>
#include <numeric>

#include <gtest/gtest.h>

#include "fast/kernels/FastKernels.h"
#include "support/values.h"

namespace {

constexpr float kInfinity = std::numeric_limits<float>::infinity();

struct Limits {
    float low, high;
};
const Limits kLimits[] = {{-kInfinity, kInfinity}, {0.0f, kInfinity}, {0.0f, 0.5f}};

float limited(float v, float low, float high) { return v < low ? low : v > high ? high : v; }

std::size_t at(std::ptrdiff_t offset) { return static_cast<std::size_t>(offset); }

bool isInside(const FastKernelRows& rows, int outputRow, int tap) {
    if (rows.count == 0) return true;
    const int kernelRow = tap / rows.columns % rows.count;
    const std::int64_t row = rows.top + outputRow * rows.stride + kernelRow * rows.dilation;
    return row >= 0 && row < rows.inputRows;
}

// y as one chain of fused multiply-adds for each output.
void plainProduct(const FastProduct& c, std::vector<float>& y) {
    for (int b = 0; b < c.blocks; ++b)
        for (int r = 0; r < c.rows; ++r)
            for (int p = 0; p < c.pixels; ++p)
                for (int lane = 0; lane < (b + 1 < c.blocks ? kFastBlock : c.lanes); ++lane) {
                    float& out = y[at(b * c.yBlock + r * c.yRow + p * c.yStep + lane)];
                    float sum = c.carryOn ? out : c.bias ? c.bias[b * kFastBlock + lane] : 0.0f;
                    for (int k = 0; k < c.tapCount; ++k) {
                        if (isInside(c.kernelRows, r, k))
                            sum = std::fma(c.x[r * c.xRow + p * c.xStep + c.taps[k]],
                                           c.weights[(b * c.tapCount + k) * kFastBlock + lane], sum);
                    }
                    if (c.added) sum += c.added[b * c.addedBlock + r * c.addedRow + p * c.addedStep + lane];
                    out = limited(sum, c.low, c.high);
                }
}

// Every row of the table: these rows, up to this many pixels and blocks.
TEST(FastProduct, EqualsThePlainChainOfFusedStepsOnEveryInstructionSet) {
    const struct {
        int rows, mostPixels, mostBlocks;
    } kSizes[] = {{1, 30, 1}, {1, 16, 3}, {2, 15, 2}, {3, 8, 5}, {1, 2, 17}, {5, 1, 9}};
    const std::ptrdiff_t kSteps[] = {1, 2, 16, 32, 5};
    Values values(71);
    for (const auto& size : kSizes)
        for (int pixels = 1; pixels <= size.mostPixels; ++pixels)
            for (int blocks = 1; blocks <= size.mostBlocks; ++blocks) {
                FastProduct c;
                c.blocks = blocks, c.rows = size.rows, c.pixels = pixels;
                c.lanes = values.integer(0, 1) ? kFastBlock : values.integer(1, kFastBlock);
                FastKernelRows rows{values.integer(1, 5), values.integer(1, 3), values.integer(1, 2),
                                    values.integer(1, 2), values.integer(1, 5), values.integer(-6, 1)};
                c.tapCount = values.integer(0, 9) ? values.integer(1, 5) * rows.channelTaps() : 0;
                if (values.integer(0, 1)) c.kernelRows = rows;
                c.xStep = kSteps[values.integer(0, 4)];
                c.xRow = pixels * c.xStep + values.integer(0, 7);
                const int xSize = static_cast<int>(c.rows * c.xRow) + 50;
                std::vector<std::int32_t> taps;
                for (int k = 0; k < c.tapCount; ++k) taps.push_back(values.integer(-20, 20));
                c.taps = taps.data();
                c.yStep = kFastBlock + values.integer(0, 1) * 3;
                c.yRow = pixels * c.yStep + 1;
                c.yBlock = c.rows * c.yRow + 2;
                c.addedStep = kFastBlock + values.integer(0, 1);
                c.addedRow = pixels * c.addedStep + 3;
                c.addedBlock = c.rows * c.addedRow + 1;
                const auto x = valuesWithSpecials(values.next(), at(xSize));
                const auto weights = values.reals(at(blocks * (c.tapCount + 1) * kFastBlock));
                const auto bias = values.reals(at(blocks * kFastBlock));
                const auto added = values.reals(at(blocks * c.addedBlock));
                const auto before = valuesWithSpecials(values.next(), at(blocks * c.yBlock));
                c.x = x.data() + 20, c.weights = weights.data();
                c.bias = values.integer(0, 3) ? bias.data() : nullptr;
                c.added = values.integer(0, 1) ? added.data() : nullptr;
                c.carryOn = values.integer(0, 1);
                const Limits& limits = kLimits[values.integer(0, 2)];
                c.low = limits.low, c.high = limits.high;
                std::vector<float> expected = before;
                plainProduct(c, expected);
                SCOPED_TRACE(testing::Message() << c.rows << " rows, " << pixels << " pixels, " << blocks
                                                << " blocks, step " << c.xStep << ", lanes " << c.lanes);
                for (const FastKernels* kernels : supportedFastKernels()) {
                    SCOPED_TRACE(kernels->name);
                    std::vector<float> y = before;
                    c.y = y.data();
                    kernels->product(c);
                    expectSameBits(y, expected);
                    if (testing::Test::HasFailure()) return;
                }
            }
}

// Sums that two calls make: the second carries on, and adds what lay in y before all.
TEST(FastProduct, CarriedSumsEqualTheWholeChain) {
    Values values(72);
    const auto x = values.reals(200), weights = values.reals(64 * kFastBlock), residual = values.reals(20 * kFastBlock);
    std::vector<std::int32_t> taps;
    for (int k = 0; k < 64; ++k) taps.push_back(k);
    FastProduct c;
    c.x = x.data(), c.xStep = 2, c.taps = taps.data(), c.tapCount = 64, c.weights = weights.data();
    c.blocks = c.rows = 1, c.pixels = 20, c.yStep = c.addedStep = kFastBlock;
    c.added = residual.data(), c.low = 0.0f, c.high = kInfinity;
    std::vector<float> expected(residual.size());
    plainProduct(c, expected);
    for (const FastKernels* kernels : supportedFastKernels()) {
        SCOPED_TRACE(kernels->name);
        std::vector<float> y(residual.size()), inPlace = residual;
        FastProduct first = c, second = c;
        first.y = second.y = y.data();
        first.tapCount = 40, first.added = nullptr, first.low = -kInfinity;
        second.tapCount = 24, second.taps += 40, second.weights += 40 * kFastBlock, second.carryOn = true;
        kernels->product(first);
        kernels->product(second);
        expectSameBits(y, expected);
        FastProduct onto = c;
        onto.added = onto.y = inPlace.data();
        kernels->product(onto);
        expectSameBits(inPlace, expected);
    }
}

// Weights that do not fit into a cache are read in chunks; the sums wait in y, unless y holds what is added. How many
// blocks a tile takes depends on the instruction set and on the pixels.
TEST(FastProduct, ManyWeightsEqualThePlainChain) {
    const struct {
        int rows, pixels, blocks, lanes, taps, kernelRows;
    } kSizes[] = {
        {1, 45, 1, 16, 9000, 0},  // tiles of one block
        {1, 45, 2, 5, 4200, 2},   // of two, with AVX-512
        {10, 1, 2, 16, 4200, 7},  // of two elsewhere
        {1, 45, 3, 5, 2800, 0},   // of three, with AVX-512; so are the next ones
        {8, 2, 5, 3, 2100, 3},    // of four; the fifth block is not in chunks
        {7, 1, 10, 16, 1100, 5},  // of eight
    };
    Values values(74);
    for (const auto& size : kSizes)
        for (const bool carryOn : {false, true}) {
            FastProduct c;
            c.rows = size.rows, c.pixels = size.pixels, c.blocks = size.blocks, c.lanes = size.lanes;
            c.tapCount = size.taps, c.xStep = 1, c.xRow = size.pixels, c.carryOn = carryOn;
            if (size.kernelRows > 0) c.kernelRows = {size.kernelRows, 2, 1, 1, size.rows, -1};
            const int places = size.rows * size.pixels;
            auto x = values.reals(at(size.taps + places));
            x.front() = kInfinity;  // of the first pixel only
            const auto weights = values.reals(at(size.taps * size.blocks * kFastBlock));
            const auto bias = values.reals(at(size.blocks * kFastBlock));
            const auto residual = values.reals(at(size.blocks * places * kFastBlock));
            std::vector<std::int32_t> taps(at(size.taps));
            std::iota(taps.begin(), taps.end(), 0);
            c.x = x.data(), c.taps = taps.data(), c.weights = weights.data(), c.bias = bias.data();
            c.added = residual.data(), c.low = -15.0f, c.high = 20.0f;
            c.yStep = c.addedStep = kFastBlock, c.yRow = c.addedRow = size.pixels * kFastBlock;
            c.yBlock = c.addedBlock = places * kFastBlock;
            std::vector<float> expected = residual;
            plainProduct(c, expected);
            SCOPED_TRACE(testing::Message() << size.blocks << " blocks, " << places << " places, carry on " << carryOn);
            for (const FastKernels* kernels : supportedFastKernels()) {
                SCOPED_TRACE(kernels->name);
                std::vector<float> y = residual, inPlace = residual;
                c.y = y.data(), c.added = residual.data();
                kernels->product(c);
                expectSameBits(y, expected);
                c.added = c.y = inPlace.data();
                kernels->product(c);
                expectSameBits(inPlace, expected);
            }
        }
}

TEST(FastDepthwise, EqualsThePlainChainOfFusedStepsOnEveryInstructionSet) {
    const struct {
        int kernelH, kernelW, strideH, strideW, dilationH, dilationW;
    } kWindows[] = {{3, 3, 1, 1, 1, 1}, {3, 3, 2, 2, 1, 1}, {5, 5, 1, 1, 1, 1}, {5, 5, 2, 2, 1, 1},
                    {3, 3, 2, 1, 1, 1}, {3, 3, 3, 3, 1, 1}, {3, 3, 1, 1, 2, 3}, {1, 7, 1, 2, 1, 1}};
    Values values(73);
    for (const auto& w : kWindows)
        for (int pixels = 1; pixels <= 20; ++pixels) {
            FastDepthwise c;
            c.kernelH = w.kernelH, c.kernelW = w.kernelW, c.strideH = w.strideH, c.strideW = w.strideW;
            c.dilationH = w.dilationH, c.dilationW = w.dilationW;
            c.rows = values.integer(1, 3), c.pixels = pixels;
            const int reachH = (c.rows - 1) * w.strideH + (w.kernelH - 1) * w.dilationH + 1;
            const int reachW = (pixels - 1) * w.strideW + (w.kernelW - 1) * w.dilationW + 1;
            c.xRow = reachW * kFastBlock + values.integer(0, 1) * 5;
            c.yRow = pixels * kFastBlock + 2;
            c.addedRow = pixels * kFastBlock + 1;
            const auto x = valuesWithSpecials(values.next(), at(reachH * c.xRow));
            const auto weights = values.reals(at(w.kernelH * w.kernelW * kFastBlock)), bias = values.reals(kFastBlock);
            const auto added = values.reals(at(c.rows * c.addedRow));
            c.x = x.data(), c.weights = weights.data();
            c.bias = values.integer(0, 3) ? bias.data() : nullptr;
            c.added = values.integer(0, 1) ? added.data() : nullptr;
            const Limits& limits = kLimits[values.integer(0, 2)];
            c.low = limits.low, c.high = limits.high;
            std::vector<float> expected(at(c.rows * c.yRow), 9.0f);
            for (int r = 0; r < c.rows; ++r)
                for (int i = 0; i < pixels * kFastBlock; ++i) {
                    const int p = i / kFastBlock, lane = i % kFastBlock;
                    float sum = c.bias ? bias[at(lane)] : 0.0f;
                    for (int kh = 0; kh < w.kernelH; ++kh)
                        for (int kw = 0; kw < w.kernelW; ++kw)
                            sum = std::fma(x[at((r * w.strideH + kh * w.dilationH) * c.xRow +
                                                (p * w.strideW + kw * w.dilationW) * kFastBlock + lane)],
                                           weights[at((kh * w.kernelW + kw) * kFastBlock + lane)], sum);
                    if (c.added) sum += added[at(r * c.addedRow + i)];
                    expected[at(r * c.yRow + i)] = limited(sum, c.low, c.high);
                }
            SCOPED_TRACE(testing::Message() << w.kernelH << "x" << w.kernelW << ", strides " << w.strideH << " "
                                            << w.strideW << ", " << c.rows << " rows, " << pixels << " pixels");
            for (const FastKernels* kernels : supportedFastKernels()) {
                SCOPED_TRACE(kernels->name);
                std::vector<float> y(expected.size(), 9.0f);
                c.y = y.data();
                kernels->depthwise(c);
                expectSameBits(y, expected);
                if (testing::Test::HasFailure()) return;
            }
        }
}

TEST(FastKernels, CanBeForcedAndAreNamed) {
    for (const FastKernels* kernels : supportedFastKernels()) {
        forceFastKernels(kernels);
        EXPECT_EQ(&fastKernels(), kernels);
        EXPECT_STRNE(kernels->name, "");
    }
    forceFastKernels(nullptr);
    EXPECT_EQ(&fastKernels(), supportedFastKernels().back());
}

}  // namespace
