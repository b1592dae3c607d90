#include "layers/RawPoolingLayer.h"

#include <algorithm>

#include "builder/shapes.h"

RawPoolingLayer::RawPoolingLayer(nolk::Tensor input, nolk::Tensor output, PoolingType type, nolk::DimsHW kernel,
                                 nolk::Padding padding, nolk::DimsHW stride)
    : input_(input), output_(output), type_(type), kernel_(kernel), padding_(padding), stride_(stride) {
    desc = "pool";
}

void RawPoolingLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& in = input_.shape;
    const nolk::TensorShape& out = output_.shape;
    if (elementCount(out) == 0) return;
    // Nothing is read from an empty input, whose other extents may be of any size.
    const std::ptrdiff_t inPlane = elementCount(in) > 0 ? static_cast<std::ptrdiff_t>(in.h) * in.w : 0;
    const float* plane = input_.data;
    float* y = output_.data;
    for (int i = 0; i < in.n * in.c; ++i, plane += inPlane)
        for (int oh = 0; oh < out.h; ++oh)
            for (int ow = 0; ow < out.w; ++ow) {
                const Window part = window(oh, ow);
                *y++ = type_ == POOL_AVG ? average(plane, part) : maximum(plane, part);
            }
}

RawPoolingLayer::Window RawPoolingLayer::window(int outRow, int outColumn) const {
    const int top = outRow * stride_.h - padding_.top;
    const int left = outColumn * stride_.w - padding_.left;
    const Window part{std::max(top, 0), std::min(top + kernel_.h, input_.shape.h), std::max(left, 0),
                      std::min(left + kernel_.w, input_.shape.w)};
    // Without columns no row needs a visit; there may be very many.
    return part.left < part.right ? part : Window{0, 0, 0, 0};
}

float RawPoolingLayer::maximum(const float* plane, const Window& part) const {
    float max = -1.0e37f;
    for (int h = part.top; h < part.bottom; ++h) {
        const float* row = plane + static_cast<std::ptrdiff_t>(h) * input_.shape.w;
        for (int w = part.left; w < part.right; ++w) max = row[w] > max ? row[w] : max;
    }
    return max;
}

float RawPoolingLayer::average(const float* plane, const Window& part) const {
    float sum = 0.0f;
    int count = 0;
    for (int h = part.top; h < part.bottom; ++h) {
        const float* row = plane + static_cast<std::ptrdiff_t>(h) * input_.shape.w;
        for (int w = part.left; w < part.right; ++w, ++count) sum += row[w];
    }
    if (countPad_) count = kernel_.h * kernel_.w;
    return sum / static_cast<float>(count);
}
