// Convolutions, full connections, matrix products and deconvolutions of the fast back end are plain chains of fused
// multiply-adds, to the bit, on every instruction set. Zeros of either sign are equal.
#include <gtest/gtest.h>

#include "fast/kernels/FastKernels.h"
#include "support/expectReference.h"

namespace {

void expectChains(const std::vector<Shape>& shapes, const Record& record, const std::vector<float>* chains = nullptr) {
    for (const FastKernels* kernels : supportedFastKernels()) {
        SCOPED_TRACE(kernels->name);
        forceFastKernels(kernels);
        ReferenceBuilder reference;
        Net net("threads");
        Xs plain, real;
        for (const Shape& shape : shapes) {
            const std::vector<float> values =
                Values(static_cast<std::uint32_t>(plain.size()) + 1).reals(ReferenceBuilder::count(shape));
            plain.push_back(reference.input(shape, values));
            real.push_back(net.input(shape, values));
        }
        Recording one(reference, plain), other(*net.operator->(), real);
        std::vector<float> expected = chains ? *chains : reference.values(record(one));
        std::vector<float> actual = net.run({record(other)})[0];
        for (std::vector<float>* values : {&expected, &actual})
            for (float& v : *values) v += 0.0f;  // -0 becomes 0
        expectSameBits(actual, expected);
    }
    forceFastKernels(nullptr);
}

TEST(FastSums, ConvolutionsAddBiasThenChannelsRowsColumns) {
    const struct {
        Shape in;
        int groups, out;
        nolk::DimsHW kernel;
        nolk::Padding padding;
        nolk::DimsHW stride = {1, 1}, dilation = {1, 1};
        bool shared = false;
    } cases[] = {
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
    };
    for (const auto& c : cases)
        for (const bool bias : {false, true}) {
            SCOPED_TRACE(testing::Message() << "case " << &c - cases << ", bias " << bias);
            expectChains({c.in}, [&](Recording& r) {
                return r->convolve(
                    r.x[0], c.padding, c.stride, c.dilation,
                    r.weights(c.groups, c.out, c.in.c / c.groups, c.kernel.h, c.kernel.w, bias, c.shared));
            });
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
                const auto input = [&](Recording& r) {
                    return behind ? r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, in.c, in.c, 1, 1, true))
                                  : r.x[0];
                };
                ReferenceBuilder reference;
                Recording r(reference, {reference.input(in, Values(1).reals(ReferenceBuilder::count(in)))});
                const std::vector<float> x = reference.values(input(r));
                const nolk::Weights w = r.weights(1, out, in.c, 1, 1, true);
                std::vector<float> chains;
                for (int n = 0; n < in.n; ++n)
                    for (int o = 0; o < out; ++o) {
                        float sum = w.bias[o];
                        for (int i = 0; i < in.c; ++i)
                            sum = std::fma(x[static_cast<std::size_t>(n * in.c + i)], w.weight[o * in.c + i], sum);
                        chains.push_back(sum);
                    }
                const auto record = [&](Recording& other) {
                    X const y = input(other);
                    const nolk::Weights weights = other.weights(1, out, in.c, 1, 1, true);
                    if (behind) other->convolve(y, {1, 1, 1, 1}, {1, 1}, {1, 1}, other.weights(1, 1, in.c, 3, 3, true));
                    return other->fullConnect(y, weights);
                };
                expectChains({in}, record, &chains);
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
        Arrays arrays(1);
        const nolk::Weights w = arrays.weights(1, c.out, c.in.c, c.kernel, c.kernel, true);
        const std::vector<float> x = Values(1).reals(ReferenceBuilder::count(c.in));
        const int h = (c.in.h - 1) * c.stride.h + c.kernel - c.padding.top - c.padding.bottom;
        const int width = (c.in.w - 1) * c.stride.w + c.kernel - c.padding.left - c.padding.right;
        std::vector<float> chains;
        for (int n = 0; n < c.in.n; ++n)
            for (int o = 0; o < c.out; ++o)
                for (int row = 0; row < h; ++row)
                    for (int column = 0; column < width; ++column) {
                        float sum = w.bias[o];
                        for (int i = 0; i < c.in.c; ++i)
                            for (int kh = 0; kh < c.kernel; ++kh)
                                for (int kw = 0; kw < c.kernel; ++kw) {
                                    const int r = row + c.padding.top - kh, s = column + c.padding.left - kw;
                                    if (r < 0 || s < 0 || r % c.stride.h != 0 || s % c.stride.w != 0) continue;
                                    if (r / c.stride.h >= c.in.h || s / c.stride.w >= c.in.w) continue;
                                    const int place = ((n * c.in.c + i) * c.in.h + r / c.stride.h) * c.in.w;
                                    sum = std::fma(x[static_cast<std::size_t>(place + s / c.stride.w)],
                                                   w.weight[((i * c.out + o) * c.kernel + kh) * c.kernel + kw], sum);
                                }
                        chains.push_back(sum);
                    }
        const auto record = [&](Recording& r) {
            return r->deConvolve(r.x[0], c.padding, c.stride, {1, 1},
                                 r.weights(1, c.out, c.in.c, c.kernel, c.kernel, true));
        };
        expectChains({c.in}, record, &chains);
    }
}

}  // namespace
