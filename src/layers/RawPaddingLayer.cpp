#include "layers/RawPaddingLayer.h"

#include <algorithm>

#include "builder/shapes.h"

RawPaddingLayer::RawPaddingLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding)
    : input_(input), output_(output), padding_(padding) {
    desc = "pad";
}

void RawPaddingLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& in = input_.shape;
    const std::ptrdiff_t outW = output_.shape.w;
    if (elementCount(output_.shape) == 0) return;
    const float* x = input_.data;
    float* y = output_.data;
    for (int plane = 0; plane < in.n * in.c; ++plane) {
        y = std::fill_n(y, padding_.top * outW, 0.0f);
        for (int h = 0; h < in.h; ++h, x += in.w) {
            y = std::fill_n(y, padding_.left, 0.0f);
            y = std::copy_n(x, in.w, y);
            y = std::fill_n(y, padding_.right, 0.0f);
        }
        y = std::fill_n(y, padding_.bottom * outW, 0.0f);
    }
}
