#include "layers/RawReductionLayer.h"

#include <algorithm>
#include <cstddef>
#include <limits>

#include "builder/shapes.h"
#include "math/blas.h"

namespace {

// Each combines an accumulator with the next value. acc != acc is true for NaN. They are lambdas, not functions,
// because every lambda has its own type and is inlined.
constexpr auto larger = [](float acc, float x) { return acc != acc || x > acc ? x : acc; };
constexpr auto smaller = [](float acc, float x) { return acc != acc || x < acc ? x : acc; };
constexpr auto sum = [](float acc, float x) { return acc != acc ? x : x + acc; };

}  // namespace

RawReductionLayer::RawReductionLayer(nolk::Tensor input, nolk::Tensor output, nolk::BasicOp op)
    : input_(input), output_(output), op_(op) {
    desc = "reduce";
}

bool RawReductionLayer::reducesChannelsOnly(const nolk::TensorShape& in, const nolk::TensorShape& out) {
    return out.c != in.c && out.h == in.h && out.w == in.w;
}

void RawReductionLayer::run(AlignedMemory<float>&) {
    const bool channels = reducesChannelsOnly(input_.shape, output_.shape);
    switch (op_) {
        case nolk::BasicOp::maximum:
            return channels ? reduceChannel(vectorMax) : reduce(larger);
        case nolk::BasicOp::minimum:
            return channels ? reduceChannel(vectorMin) : reduce(smaller);
        case nolk::BasicOp::mean:
        case nolk::BasicOp::sum:
            return channels ? reduceChannel(vectorAdd) : reduce(sum);
    }
}

void RawReductionLayer::reduceChannel(void (*combine)(int n, float* dst, const float* src)) const {
    const nolk::TensorShape& s = input_.shape;
    if (elementCount(s) == 0) return;
    const int plane = s.h * s.w;
    const float share = 1.0f / static_cast<float>(s.c);
    for (std::ptrdiff_t n = 0; n < s.n; ++n) {
        const float* in = input_.data + n * s.c * plane;
        float* out = output_.data + n * plane;
        std::copy_n(in, plane, out);
        for (std::ptrdiff_t c = 1; c < s.c; ++c) combine(plane, out, in + c * plane);
        if (op_ == nolk::BasicOp::mean) vectorMul(plane, out, share);
    }
}

template <typename Accumulate>
void RawReductionLayer::reduce(Accumulate accumulate) const {
    const nolk::TensorShape& s = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    std::fill_n(output_.data, elementCount(o), std::numeric_limits<float>::quiet_NaN());
    if (elementCount(s) == 0) return;
    const float* in = input_.data;
    for (std::ptrdiff_t n = 0; n < s.n; ++n)
        for (int c = 0; c < s.c; ++c)
            for (int h = 0; h < s.h; ++h, in += s.w) {
                float* out = output_.data + ((n * o.c + (o.c == 1 ? 0 : c)) * o.h + (o.h == 1 ? 0 : h)) * o.w;
                if (o.w == 1) {
                    float acc = out[0];
                    for (int w = 0; w < s.w; ++w) acc = accumulate(acc, in[w]);
                    out[0] = acc;
                } else {
                    for (int w = 0; w < s.w; ++w) out[w] = accumulate(out[w], in[w]);
                }
            }
    if (op_ == nolk::BasicOp::mean) divideByCount();
}

void RawReductionLayer::divideByCount() const {
    const nolk::TensorShape& s = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    const int count = (o.c == 1 ? s.c : 1) * (o.h == 1 ? s.h : 1) * (o.w == 1 ? s.w : 1);
    // An output may have more samples than the input; the additional ones are not divided.
    const int samples = std::min(s.n, o.n);
    vectorDiv(samples * o.c * o.h * o.w, output_.data, static_cast<float>(count));
}
