// Sums of the fast back end are those of docs/arithmetic.md, to the bit, on every instruction set: chains of fused
// multiply-adds in products, partial sums in reductions and normalisations. Zeros of either sign are equal.
#include <gtest/gtest.h>

#include "fast/plainArithmetic.h"
#include "support/effort.h"
#include "support/expectReference.h"

namespace {

// Where the reference sums otherwise.
class Chains final : public ReferenceBuilder {
public:
    using ReferenceBuilder::instanceNormalization;
    X fullConnect(X x, nolk::Weights w) override { return convolve(x, {}, {1, 1}, {1, 1}, w); }
    X deConvolve(X input, nolk::Padding p, nolk::DimsHW s, nolk::DimsHW, nolk::Weights k) override {
        const Plain& x = of(input);
        const int h = (x.shape.h - 1) * s.h + k.kernelH - p.top - p.bottom;
        const int w = (x.shape.w - 1) * s.w + k.kernelW - p.left - p.right;
        const Shape kernel{x.shape.c, k.outChannels, k.kernelH, k.kernelW, 3};
        return make({x.shape.n, k.outChannels, h, w, 3}, [&](int n, int o, int row, int column) {
            float sum = k.bias[o];
            forEach({x.shape.c, 1, k.kernelH, k.kernelW, 3}, [&](int i, int, int kh, int kw) {
                const int r = row + p.top - kh, c = column + p.left - kw;
                if (r % s.h == 0 && c % s.w == 0)
                    sum = std::fma(x.padded(n, i, r / s.h, c / s.w), k.weight[at(kernel, i, o, kh, kw)], sum);
            });
            return sum;
        });
    }

    X softmax(X x, nolk::Axis axis) override {
        const int a = static_cast<int>(axis);
        return lines(x, a, a, shapeOf(x), [](std::vector<float> line, bool areNeighbours, int) {
            const float largest = plain::chain(line, line[0], [](float m, float v) { return v > m ? v : m; });
            for (float& v : line) v = plain::exp(v - largest);
            const float sum = sumOf(line, areNeighbours, 0.0f, plain::plus);
            for (float& v : line) v /= sum;
            return line;
        });
    }
    X l2normalize(X x) override {
        return lines(x, 1, 1, shapeOf(x), [](std::vector<float> line, bool areNeighbours, int) {
            const auto addSquare = [](float sum, float v) { return std::fma(v, v, sum); };
            const float norm = std::sqrt(sumOf(line, areNeighbours, 0.0f, addSquare));
            for (float& v : line) v /= norm;
            return line;
        });
    }
    X instanceNormalization(X x, nolk::Vector scale, nolk::Vector bias, float epsilon) override {
        return lines(x, 2, 3, shapeOf(x), [=](const std::vector<float>& line, bool, int number) {
            const int c = number % shapeOf(x).c;
            return plain::normalized(line, scale.data[c], bias.data[c], epsilon);
        });
    }
    // Along one axis, or several that follow each other.
    X reduce(X x, Shape out, nolk::BasicOp op) override {
        const Shape in = shapeOf(x);
        const int first = out.c != in.c ? 1 : out.h != in.h ? 2 : 3, last = out.w != in.w ? 3 : out.h != in.h ? 2 : 1;
        return lines(x, first, last, out, [=](const std::vector<float>& line, bool areNeighbours, int) {
            const bool isLargest = op == nolk::BasicOp::maximum, overChannels = last == 1;
            const auto size = static_cast<float>(line.size());
            if (isLargest || op == nolk::BasicOp::minimum) {
                const auto better = [=](float best, float v) {
                    return (std::isnan(best) && !overChannels) || (isLargest ? v > best : v < best) ? v : best;
                };
                return std::vector<float>{plain::chain(line, line[0], better)};
            }
            float sum = sumOf(line, areNeighbours, -0.0f, plain::plus);
            if (!overChannels && std::isnan(sum)) sum = plain::chain(line, plain::kNan, plain::plusOrNext);
            if (op == nolk::BasicOp::mean) sum = overChannels ? sum * (1.0f / size) : sum / size;
            return std::vector<float>{sum};
        });
    }

private:
    // 16 partial sums of neighbours, or one chain.
    template <typename Add>
    static float sumOf(const std::vector<float>& line, bool areNeighbours, float start, Add add) {
        return areNeighbours ? plain::reduce16(line, start, add, plain::plus) : plain::chain(line, start, add);
    }
};

// From one length to the next: more on machines that are only emulated.
int step() { return effort() < 100 ? 7 : 1; }

void expectChains(const std::vector<Shape>& shapes, const Record& record, bool special = false) {
    forEachInstructionSet([&] {
        Chains reference;
        Net net("threads");
        Xs plain, real;
        for (const Shape& shape : shapes) {
            const auto seed = static_cast<std::uint32_t>(plain.size() + 1);
            const std::size_t count = ReferenceBuilder::count(shape);
            const std::vector<float> values = special ? valuesWithSpecials(seed, count) : Values(seed).reals(count);
            plain.push_back(reference.input(shape, values));
            real.push_back(net.input(shape, values));
        }
        Recording one(reference, plain), other(*net.operator->(), real);
        std::vector<float> expected = reference.values(record(one)), actual = net.run({record(other)})[0];
        for (std::vector<float>* values : {&expected, &actual})
            for (float& v : *values) v += 0.0f;  // -0 becomes 0
        expectSameBits(actual, expected);
    });
}

struct Convolution {
    Shape in;
    int groups, out;
    nolk::DimsHW kernel;
    nolk::Padding padding;
    nolk::DimsHW stride = {1, 1}, dilation = {1, 1};
    bool shared = false;
};

// Alone, with a bias, with limits, and with another convolution that is added.
void expectConvolution(const Convolution& c) {
    for (int form = 0; form < 4; ++form) {
        SCOPED_TRACE(testing::Message() << "form " << form);
        expectChains({c.in}, [&](Recording& r) {
            const auto convolve = [&] {
                const nolk::Weights w =
                    r.weights(c.groups, c.out, c.in.c / c.groups, c.kernel.h, c.kernel.w, form > 0, c.shared);
                return r->convolve(r.x[0], c.padding, c.stride, c.dilation, w);
            };
            X const y = convolve();
            if (form == 2) return r->clip(y, -0.5f, 0.75f);
            return form == 3 ? r->relu(r->add(y, convolve())) : y;
        });
    }
}

TEST(FastSums, ConvolutionsAddBiasThenChannelsRowsColumns) {
    const Convolution cases[] = {
        {{1, 3, 11, 13, 3}, 1, 32, {7, 7}, {3, 3, 3, 3}, {2, 2}},               // plain input
        {{2, 3, 9, 37, 3}, 1, 24, {3, 3}, {1, 1, 1, 1}, {2, 2}},                // the same, several samples
        {{1, 1, 5, 29, 3}, 1, 1, {3, 3}, {0, 1, 2, 0}},                         // one channel in, one out
        {{1, 64, 7, 7, 3}, 1, 48, {3, 3}, {1, 1, 1, 1}},                        // whole blocks
        {{1, 40, 15, 17, 3}, 1, 1000, {1, 1}, {}},                              // joined rows, a part of a block
        {{2, 24, 14, 15, 3}, 1, 40, {1, 1}, {}, {2, 3}},                        // rows that are not joined
        {{1, 16, 5, 6, 3}, 1, 17, {3, 5}, {4, 0, 1, 3}, {1, 2}, {2, 1}},        // dilation
        {{1, 20, 3, 3, 3}, 1, 33, {3, 3}, {40, 50, 9, 8}, {7, 5}},              // a border too wide to be stored
        {{1, 9, 6, 6, 3}, 1, 8, {2, 3}, {-1, 0, 0, -2}},                        // cropped
        {{1, 32, 9, 10, 3}, 8, 4, {3, 3}, {1, 1, 1, 1}},                        // groups that share a block
        {{1, 48, 6, 7, 3}, 6, 24, {3, 3}, {1, 1, 1, 1}, {2, 1}},                // groups that end within a block
        {{2, 48, 6, 7, 3}, 2, 16, {3, 3}, {1, 1, 1, 1}},                        // groups of blocks
        {{1, 12, 6, 7, 3}, 4, 5, {3, 3}, {30, 30, 30, 30}, {9, 9}},             // groups behind a wide border
        {{1, 40, 5, 6, 3}, 5, 12, {3, 2}, {1, 1, 1, 1}, {1, 1}, {1, 1}, true},  // groups with the same weights
        {{1, 50, 9, 33, 3}, 50, 1, {3, 3}, {1, 1, 1, 1}},                       // depthwise
        {{2, 17, 9, 12, 3}, 17, 1, {5, 5}, {2, 2, 2, 2}, {2, 2}, {1, 1}, true},
        {{1, 16, 9, 12, 3}, 16, 1, {3, 3}, {2, 2, 2, 2}, {1, 3}, {2, 2}},
        {{1, 16, 4, 29, 3}, 16, 1, {1, 7}, {0, 0, 3, 3}, {1, 2}},
        // Weights that do not fit into a cache and are read in chunks, for tiles of one to eight blocks.
        {{1, 9000, 1, 45, 3}, 1, 16, {1, 1}, {}},
        {{1, 1050, 2, 45, 3}, 1, 21, {2, 2}, {0, 1, 0, 1}},
        {{1, 600, 10, 1, 3}, 1, 32, {7, 1}, {3, 3, 0, 0}},
        {{1, 2800, 1, 45, 3}, 1, 37, {1, 1}, {}},
        {{1, 700, 8, 2, 3}, 1, 67, {3, 1}, {1, 1, 0, 0}},
        {{1, 220, 7, 1, 3}, 1, 160, {5, 1}, {2, 2, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectConvolution(c);
    }
}

// What is left of a row behind the tiles of pixels, and of the blocks behind the tiles of blocks.
TEST(FastSums, RowsOfEveryLengthAreSummed) {
    const struct {
        int groups, out, kernel, stride;
    } kinds[] = {{1, 40, 1, 1}, {1, 100, 3, 1}, {1, 272, 1, 1}, {1, 16, 3, 2},
                 {20, 1, 3, 1}, {20, 1, 3, 2},  {20, 1, 5, 1},  {20, 1, 5, 2}};
    for (const auto& k : kinds)
        for (int width = 1; width <= 31; width += step()) {
            SCOPED_TRACE(testing::Message() << "kind " << &k - kinds << ", width " << width);
            const int ring = k.kernel / 2;
            expectConvolution({{1, 20, 1 + width % 3, width, 3},
                               k.groups,
                               k.out,
                               {k.kernel, k.kernel},
                               {ring, ring, ring, ring},
                               {k.stride, k.stride}});
        }
}

TEST(FastSums, MatrixProductsAddAlongTheRows) {
    const std::vector<Shape> pairs[] = {{{1, 1, 1, 1, 3}, {1, 1, 1, 1, 3}},
                                        {{2, 3, 7, 5, 3}, {2, 3, 5, 33, 3}},
                                        {{1, 2, 31, 67, 3}, {1, 2, 67, 16, 3}},
                                        {{1, 1, 3, 200, 3}, {1, 1, 200, 47, 3}}};
    for (const std::vector<Shape>& pair : pairs) {
        expectChains(pair, [](Recording& r) { return r->matMul(r.x[0], r.x[1]); });
        std::vector<float> values = Values(3).reals(ReferenceBuilder::count(pair[1]));
        nolk::Tensor constant{pair[1], values.data()};
        for (const bool equalSamples : {false, true}) {
            if (equalSamples && pair[1].n == 2)
                std::copy_n(values.begin(), values.size() / 2,
                            values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
            for (int others = 0; others < 3; ++others) {  // none, another product, what reads the constant in each run
                SCOPED_TRACE(testing::Message() << "equal samples " << equalSamples << ", others " << others);
                expectChains({pair[0]}, [&](Recording& r) {
                    X const b = r->constTensor(&constant);
                    X const y = r->matMul(r.x[0], b);
                    if (others == 0) return y;
                    return r->add(y, others == 1 ? r->matMul(r->abs(r.x[0]), b) : r->matMul(r.x[0], r->abs(b)));
                });
            }
        }
    }
}

TEST(FastSums, FullConnectionsAddBiasThenInputs) {
    for (const Shape& in : {Shape{1, 1, 1, 1, 3}, {3, 40, 1, 1, 1}, {5, 129, 1, 1, 1}})
        for (const int out : {1, 16, 150})
            for (const bool behind : {false, true}) {  // behind a convolution, the input lies in blocks with a border
                SCOPED_TRACE(testing::Message() << in.c << " to " << out << ", behind a convolution " << behind);
                expectChains({in}, [&](Recording& r) {
                    X x = r.x[0];
                    if (behind) x = r->convolve(x, {}, {1, 1}, {1, 1}, r.weights(1, in.c, in.c, 1, 1, true));
                    if (behind) r->convolve(x, {1, 1, 1, 1}, {1, 1}, {1, 1}, r.weights(1, 1, in.c, 3, 3, true));
                    return r->fullConnect(x, r.weights(1, out, in.c, 1, 1, true));
                });
            }
}

TEST(FastSums, DeconvolutionsAddBiasThenChannelsRowsColumns) {
    const struct {
        Shape in;
        int out, kernel;
        nolk::DimsHW stride;
        nolk::Padding padding;
    } cases[] = {{{1, 3, 4, 5, 3}, 5, 3, {1, 1}, {1, 1, 1, 1}},   {{2, 20, 5, 4, 3}, 17, 4, {2, 2}, {1, 1, 1, 1}},
                 {{1, 16, 3, 7, 3}, 32, 3, {2, 3}, {1, 0, 1, 0}}, {{1, 7, 3, 3, 3}, 1, 2, {2, 2}, {}},
                 {{1, 8, 4, 4, 3}, 9, 2, {5, 3}, {-1, 0, 0, -2}}, {{1, 33, 1, 9, 3}, 40, 5, {3, 2}, {2, 1, 0, 3}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        expectChains({c.in}, [&](Recording& r) {
            return r->deConvolve(r.x[0], c.padding, c.stride, {1, 1},
                                 r.weights(1, c.out, c.in.c, c.kernel, c.kernel, true));
        });
    }
}

// Lines of every length up to beyond two blocks, and columns that leave every rest of a strip.
TEST(FastSums, LinesHaveSixteenPartialSumsAndColumnsOne) {
    using nolk::BasicOp;
    std::vector<Shape> shapes = {{1, 1, 1, 1000, 3}, {1, 33, 10, 20, 3}};
    for (int extent = 1; extent <= 37; extent += step()) shapes.push_back({1, 3, 1, extent, 3});
    for (int extent = 1; extent <= 37; extent += step()) shapes.push_back({3, extent, 1, 1, 3});
    for (int inner = 2; inner <= 70; inner += step()) shapes.push_back({2, 1 + inner % 5, 1, inner, 3});
    for (const Shape& s : shapes)
        for (const bool special : {false, true}) {
            SCOPED_TRACE(testing::Message() << s.c << " x " << s.h << " x " << s.w << ", special " << special);
            for (const nolk::Axis axis : {nolk::Axis::c, nolk::Axis::w})
                expectChains(
                    {s}, [axis](Recording& r) { return r->softmax(r.x[0], axis); }, special);
            expectChains(
                {s}, [](Recording& r) { return r->l2normalize(r.x[0]); }, special);
            const auto normalize = [&s](Recording& r) {
                const nolk::Vector scale = r.vector(s.c);
                return r->instanceNormalization(r.x[0], scale, r.vector(s.c), 0.1f);
            };
            expectChains({s}, normalize, special);
            for (const BasicOp op : {BasicOp::maximum, BasicOp::mean, BasicOp::sum, BasicOp::minimum})
                for (const Shape& out : {Shape{s.n, 1, s.h, s.w, 3}, {s.n, s.c, s.h, 1, 3}, {s.n, 1, 1, 1, 3}})
                    if (ReferenceBuilder::count(out) < ReferenceBuilder::count(s))
                        expectChains(
                            {s}, [&](Recording& r) { return r->reduce(r.x[0], out, op); }, special);
        }
}

// A vector's zeros at the end are stored once. With powers of two, the order of factors does not matter.
TEST(FastSums, ChannelsBeyondTheStoredOnesHaveTheLastValue) {
    constexpr nolk::DimsHW kOne{1, 1};
    for (const int stored : {0, 5, 16, 39, 40})
        for (int form = 0; form < 4; ++form)  // single elements, planes, behind a convolution, in the weights
            for (int op = 0; op < 3; ++op) {
                SCOPED_TRACE(testing::Message() << stored << " stored, form " << form << ", operation " << op);
                expectChains({{1, 40, form == 0 ? 1 : 2, form == 0 ? 1 : 3, 3}}, [&](Recording& r) {
                    const nolk::Vector v = r.vector(40), zeros{40, std::fill_n(r.reals(40), 40, 0.0f) - 40};
                    for (int c = 0; c < 40; ++c) v.data[c] = c < stored ? std::ldexp(1.0f, c % 4) : 0.0f;
                    X x = r.x[0];
                    if (form == 2) x = r->convolve(x, {}, kOne, kOne, r.weights(1, 40, 40, 1, 1, true));
                    if (form == 3) x = r->deConvolve(x, {}, kOne, kOne, r.weights(1, 40, 40, 1, 1, true));
                    if (op == 0) return r->prelu(x, v.data, 40);
                    if (op == 1) return r->instanceNormalization(x, v, v, 1.0f);
                    return r->batchNormalize(x, v, zeros, zeros, zeros, 1.0f);
                });
            }
}

// Behind a convolution, the channels lie in blocks.
TEST(FastSums, PlanesHaveSixteenPartialSums) {
    using nolk::BasicOp;
    for (int rows = 1; rows <= 5; rows += 2)
        for (int pixels = 1; pixels <= 37; pixels += step()) {
            SCOPED_TRACE(testing::Message() << rows << " x " << pixels);
            for (int op = 0; op < 5; ++op)
                expectChains({{1, 3, rows, pixels, 3}}, [op](Recording& r) {
                    X const x = r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 20, 3, 1, 1, true));
                    if (op < 4) return r->reduce(x, {1, 20, 1, 1, 3}, static_cast<BasicOp>(op));
                    const nolk::Vector scale = r.vector(20);
                    return r->instanceNormalization(x, scale, r.vector(20), 1e-5f);
                });
        }
}

TEST(FastSums, WindowsAndNeighboursAreSummedInTheBuiltInOrder) {
    const struct {
        nolk::DimsHW kernel;
        nolk::Padding padding;
        nolk::DimsHW stride;
    } windows[] = {{{2, 2}, {}, {2, 2}},           {{3, 3}, {1, 1, 1, 1}, {2, 2}},  {{3, 2}, {2, 0, 0, 2}, {1, 3}},
                   {{2, 2}, {3, 0, 0, 0}, {1, 1}}, {{5, 13}, {4, 4, 6, 6}, {1, 1}}, {{1, 1}, {9, 0, 0, 0}, {11, 3}}};
    for (const Shape& s : {Shape{1, 17, 7, 25, 3}, {2, 33, 5, 9, 3}, {1, 16, 4, 4, 3}})
        for (const bool special : {false, true}) {
            SCOPED_TRACE(testing::Message() << "c " << s.c << ", special " << special);
            for (const auto& w : windows) {
                SCOPED_TRACE(&w - windows);
                expectChains(
                    {s}, [&w](Recording& r) { return r->maxPool(r.x[0], w.kernel, w.padding, w.stride); }, special);
                expectChains(
                    {s}, [&w](Recording& r) { return r->avgPool(r.x[0], w.kernel, w.padding, w.stride); }, special);
            }
            for (const Shape& in : {s, Shape{1, 17, 1, 5, 3}, {1, 16, 6, 1, 3}})
                for (const nolk::DimsHW& to : {nolk::DimsHW{1, 1}, {2, 19}, {9, 4}, {14, 50}})
                    for (const int mode : {1, 2})
                        for (const int trans : {0, 1})
                            expectChains(
                                {in},
                                [&](Recording& r) {
                                    return r->resize(r.x[0], {in.n, in.c, to.h, to.w, 3},
                                                     static_cast<nolk::ResizeMode>(mode),
                                                     static_cast<nolk::ResizeTransMode>(trans));
                                },
                                special);
        }
    // The last windows end beyond 2^31.
    expectChains({{1, 1, 7, 1, 3}}, [](Recording& r) {
        X const x = r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 16, 1, 1, 1, true));
        return r->maxPool(x, {1 << 20, 1}, {0, 2147483647, 0, 0}, {2146435077, 1});
    });
}

}  // namespace
