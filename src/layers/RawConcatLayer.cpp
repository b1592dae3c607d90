#include "layers/RawConcatLayer.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <utility>

#include "builder/shapes.h"

RawConcatLayer::RawConcatLayer(std::vector<nolk::Tensor> inputs, nolk::Tensor output, int axis)
    : inputs_(std::move(inputs)), output_(output), axis_(axis) {
    desc = "concat";
}

void RawConcatLayer::run(AlignedMemory<float>&) {
    switch (axis_) {
        case 0:
        case -4:
            return joinSamples();
        case 1:
        case -3:
            return joinChannels();
        case 2:
        case -2:
            return joinRows();
        case 3:
        case -1:
            return joinColumns();
        default:
            std::printf("Valid axis in concat run:%d\n", axis_);
    }
}

void RawConcatLayer::joinSamples() const {
    float* out = output_.data;
    for (const nolk::Tensor& in : inputs_) out = std::copy_n(in.data, elementCount(in.shape), out);
}

void RawConcatLayer::joinChannels() const {
    const int plane = output_.shape.h * output_.shape.w;
    if (elementCount(output_.shape) == 0) return;
    float* out = output_.data;
    for (int n = 0; n < output_.shape.n; ++n)
        for (const nolk::Tensor& in : inputs_) {
            const int count = in.shape.c * plane;
            out = std::copy_n(in.data + static_cast<std::ptrdiff_t>(n) * count, count, out);
        }
}

void RawConcatLayer::joinRows() const {
    std::ptrdiff_t row = 0;
    for (const nolk::Tensor& in : inputs_) {
        const nolk::TensorShape& s = in.shape;
        const int plane = s.h * s.w;
        if (elementCount(s) > 0)
            for (std::ptrdiff_t i = 0; i < static_cast<std::ptrdiff_t>(s.n) * s.c; ++i)
                std::copy_n(in.data + i * plane, plane, output_.data + (i * output_.shape.h + row) * s.w);
        row += s.h;
    }
}

void RawConcatLayer::joinColumns() const {
    const nolk::TensorShape& o = output_.shape;
    std::ptrdiff_t column = 0;
    for (const nolk::Tensor& in : inputs_) {
        const nolk::TensorShape& s = in.shape;
        const float* row = in.data;
        const bool empty = elementCount(s) == 0;
        for (int n = 0; n < s.n && !empty; ++n)
            for (int c = 0; c < s.c; ++c) {
                float* out = output_.data + (static_cast<std::ptrdiff_t>(n) * o.c + c) * o.h * o.w + column;
                for (int h = 0; h < s.h; ++h, row += s.w, out += o.w) std::copy_n(row, s.w, out);
            }
        column += s.w;
    }
}
