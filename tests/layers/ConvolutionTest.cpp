#include <gtest/gtest.h>

#include "layers/RawConvolutionLayer.h"
#include "support/expectReference.h"

namespace {

struct Case {
    const char* claim;
    Shape in;
    int groups, out, inPerGroup;
    nolk::DimsHW kernel;
    nolk::Padding padding;
    nolk::DimsHW stride = {1, 1}, dilation = {1, 1};
    bool bias = true, shared = false;
    const char* cfg = nullptr;
};

const Case kCases[] = {
    {"3x3 with a border", {2, 3, 7, 9, 3}, 1, 5, 3, {3, 3}, {1, 1, 1, 1}},
    {"wide rows, several blocks of positions", {1, 2, 4, 37, 3}, 1, 4, 2, {3, 5}, {1, 1, 2, 2}},
    {"dilated in wide rows", {1, 2, 9, 23, 3}, 1, 4, 2, {3, 3}, {2, 1, 3, 2}, {2, 1}, {2, 3}},
    {"stride 2 in wide rows", {2, 2, 9, 37, 3}, 1, 4, 2, {3, 3}, {1, 1, 1, 1}, {2, 2}},
    {"stride 2, cropped", {1, 3, 6, 33, 3}, 1, 2, 3, {2, 5}, {0, 0, -3, -1}, {1, 2}},
    {"stride 2 to the last column", {1, 1, 3, 17, 3}, 1, 2, 1, {3, 3}, {}, {1, 2}},
    {"dilation", {2, 2, 12, 11, 3}, 1, 3, 2, {3, 3}, {2, 2, 2, 2}, {1, 2}, {2, 3}},
    {"pointwise", {3, 5, 4, 3, 3}, 1, 7, 5, {1, 1}, {}},
    {"pointwise ignores dilation", {1, 4, 3, 3, 3}, 1, 2, 4, {1, 1}, {}, {1, 1}, {2, 2}, false},
    {"1x1 with stride copies", {1, 4, 5, 5, 3}, 1, 2, 4, {1, 1}, {}, {2, 2}},
    {"groups", {2, 6, 5, 5, 3}, 3, 4, 2, {3, 3}, {1, 1, 1, 1}},
    {"depthwise", {1, 7, 6, 5, 3}, 7, 1, 1, {3, 3}, {1, 1, 1, 1}},
    {"one group's weights for all", {2, 6, 5, 5, 3}, 3, 2, 2, {3, 3}, {1, 0, 0, 1}, {1, 1}, {1, 1}, true, true},
    {"truncated extents", {1, 1, 5, 5, 3}, 1, 1, 1, {2, 2}, {}, {2, 2}, {1, 1}, false},
    {"negative padding crops", {1, 2, 8, 8, 3}, 1, 3, 2, {3, 3}, {-1, -2, -1, 0}},
    {"a window wider than a row", {1, 1, 3, 3, 3}, 1, 2, 1, {5, 7}, {3, 3, 4, 4}},
    {"no samples", {0, 3, 5, 5, 3}, 1, 2, 3, {3, 3}, {1, 1, 1, 1}},
    {"stride 0 gives one position", {1, 1, 5, 5, 3}, 1, 2, 1, {3, 3}, {1, 1, 1, 1}, {0, 0}},
    {"an empty kernel leaves the bias", {1, 1, 2, 2, 3}, 1, 2, 1, {0, 1}, {}},
    {"threads", {1, 3, 9, 9, 3}, 1, 10, 3, {3, 3}, {}, {1, 1}, {1, 1}, true, false, "num_threads=4, gemm_thresh=1"},
};

TEST(Convolution, EqualsTheDirectSums) {
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.claim);
        const auto record = [&c](Recording& r) {
            const nolk::Weights w = r.weights(c.groups, c.out, c.inPerGroup, c.kernel.h, c.kernel.w, c.bias, c.shared);
            return r->convolve(r.x[0], c.padding, c.stride, c.dilation, w);
        };
        // The matrix product sums in its own order; sums have at most 35 products here.
        expectReference({c.in}, record, 1e-5f, c.cfg);

        // The layer's own direct sums have a fixed order.
        ReferenceBuilder reference;
        std::vector<float> values = Values(3).reals(ReferenceBuilder::count(c.in));
        Recording recording(reference, {reference.input(c.in, values)}), same(reference, {});
        X const y = record(recording);
        std::vector<float> out(reference.values(y).size());
        RawConvolutionLayer({c.in, values.data()}, {reference.shapeOf(y), out.data()}, c.padding, c.stride, c.dilation,
                            same.weights(c.groups, c.out, c.inPerGroup, c.kernel.h, c.kernel.w, c.bias, c.shared), 1, 0)
            .algo();
        expectSameBits(out, reference.values(y));
    }
}

TEST(Convolution, WeightsThatDoNotFitAreRefused) {
    const Shape fitting{1, 6, 5, 5, 3};
    const struct {
        Shape in;
        nolk::Weights weights;
        bool null;
        nolk::Padding padding;
        const char* text;
    } cases[] = {
        {{1, 4, 5, 5, 3}, {1, 2, 6, 3, 3}, false, {}, "convolve: weights expect 6 input channels, input has 4"},
        {{1, 7, 5, 5, 3}, {1, 2, 6, 3, 3}, false, {}, "convolve: weights expect 6 input channels, input has 7"},
        {fitting, {1, 2, 6, 3, 3}, true, {}, "convolve: weights expected, the pointer is null"},
        {fitting, {-1, -2, 6, 3, 3}, false, {}, "convolve: weights must have no negative dimension"},
        {fitting, {1, 1 << 15, 1 << 15, 3, 3}, false, {}, "at most 2^31 - 1 floats"},  // nine times 2^30 weights
        {fitting, {1, 2, 6, 3, 3}, false, {30000, 0, 30000, 0}, "floats of scratch"},
    };
    for (const auto& c : cases)
        expectRefused({c.in}, c.text, [&](Recording& r) {
            nolk::Weights w = c.weights;
            w.weight = c.null ? nullptr : r.reals(2 * 6 * 9);
            return r->convolve(r.x[0], c.padding, {1, 1}, {1, 1}, w);
        });
    // Without positions none are read, and pointwise products may leave channels out.
    expectAccepted({{1, 6, 2, 2, 3}}, [](Recording& r) {
        return r->convolve(r.x[0], {}, {1, 1}, {1, 1}, {1, 2, 6, 3, 3});
    });
    expectAccepted({fitting}, [](Recording& r) {
        return r->convolve(r.x[0], {}, {1, 1}, {1, 1}, r.weights(1, 2, 5, 1, 1, true));
    });
}

}  // namespace
