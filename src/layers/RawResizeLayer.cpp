#include "layers/RawResizeLayer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include "builder/shapes.h"
#include "math/interpolate.h"

namespace {

std::vector<int> nearestIndices(int in, int out) {
    std::vector<int> indices(static_cast<std::size_t>(out));
    const double scale = static_cast<double>(in) / out;
    for (int i = 0; i < out; ++i) indices[static_cast<std::size_t>(i)] = std::min(static_cast<int>(i * scale), in - 1);
    return indices;
}

}  // namespace

RawResizeLayer::RawResizeLayer(nolk::Tensor input, nolk::Tensor output, nolk::ResizeMode mode,
                               nolk::ResizeTransMode transMode)
    : input_(input), output_(output), mode_(mode) {
    desc = "resize";
    const nolk::TensorShape& in = input.shape;
    const nolk::TensorShape& out = output.shape;
    if (elementCount(in) == 0 || elementCount(out) == 0) return;
    if (mode == nolk::ResizeMode::nearest) {
        columns_ = nearestIndices(in.w, out.w);
        rows_ = nearestIndices(in.h, out.h);
    } else if (mode == nolk::ResizeMode::linear) {
        const auto w = static_cast<std::size_t>(out.w), h = static_cast<std::size_t>(out.h);
        columns_.resize(w);
        rows_.resize(h);
        columnWeights_.resize(2 * w);
        rowWeights_.resize(2 * h);
        linear_coeffs(in.w, out.w, columns_.data(), columnWeights_.data(), static_cast<int>(transMode));
        linear_coeffs(in.h, out.h, rows_.data(), rowWeights_.data(), static_cast<int>(transMode));
        above_.resize(w);
        below_.resize(w);
    }
}

void RawResizeLayer::linear_coeffs(int in, int out, int* offsets, float* weights, int transMode) {
    const bool halfPixel = transMode == 0;
    // A single output index would divide by 0; it takes the first value.
    const double scale = halfPixel ? static_cast<double>(in) / out : (out > 1 ? (in - 1.0) / (out - 1.0) : 0.0);
    for (std::ptrdiff_t d = 0; d < out; ++d) {
        const double index = static_cast<double>(d);
        const auto f = static_cast<float>(halfPixel ? scale * (index + 0.5) - 0.5 : index * scale);
        float source = std::floor(f);
        float fraction = f - source;
        if (source < 0.0f) source = fraction = 0.0f;
        const bool atEnd = static_cast<double>(source) >= in - 1.0;
        offsets[d] = atEnd ? in - 2 : static_cast<int>(source);
        weights[2 * d] = atEnd ? 0.0f : 1.0f - fraction;
        weights[2 * d + 1] = atEnd ? 1.0f : fraction;
    }
}

void RawResizeLayer::run(AlignedMemory<float>&) {
    switch (mode_) {
        case nolk::ResizeMode::linear:
            return linner(input_, output_);
        case nolk::ResizeMode::nearest:
            return nearest(input_, output_);
    }
    std::puts("not suppot yet");
    std::exit(0);
}

void RawResizeLayer::linner(const nolk::Tensor& input, const nolk::Tensor& output) {
    const nolk::TensorShape& i = input.shape;
    const nolk::TensorShape& o = output.shape;
    if (elementCount(i) == 0 || elementCount(o) == 0) return;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(i.h) * i.w;
    const std::ptrdiff_t outPlane = static_cast<std::ptrdiff_t>(o.h) * o.w;
    for (std::ptrdiff_t n = 0; n < i.n; ++n)
        for (std::ptrdiff_t c = 0; c < i.c; ++c) {
            const float* in = input.data + (n * i.c + c) * inPlane;
            float* out = output.data + (n * o.c + c) * outPlane;
            if (inPlane == 1)
                std::fill_n(out, outPlane, *in);
            else
                linearPlane(in, out);
        }
}

// Neighbouring output rows often use the same two source rows, so these are kept in interpolated form. Moving on by one
// source row then needs only one row to be interpolated.
void RawResizeLayer::linearPlane(const float* in, float* out) {
    const int width = output_.shape.w;
    // If the input has only one row, the row above it does not exist. It has weight 0, and its values stay zero.
    std::fill(above_.begin(), above_.end(), 0.0f);
    std::fill(below_.begin(), below_.end(), 0.0f);
    int previous = -2;
    for (std::size_t y = 0; y < rows_.size(); ++y, out += width) {
        const int source = rows_[y];
        const float* next = in + (static_cast<std::ptrdiff_t>(source) + 1) * input_.shape.w;
        if (source == previous + 1)
            above_.swap(below_);
        else if (source != previous)
            interpolateRow(next - input_.shape.w, above_.data());
        if (source != previous) interpolateRow(next, below_.data());
        previous = source;

        const float b0 = rowWeights_[2 * y], b1 = rowWeights_[2 * y + 1];
        const float* above = above_.data();
        const float* below = below_.data();
        for (int x = 0; x < width; ++x) out[x] = b0 * above[x] + b1 * below[x];
    }
}

void RawResizeLayer::interpolateRow(const float* in, float* row) const {
    const int width = output_.shape.w;
    // The only column has weight 1. The one before it has weight 0 and does not exist, so it must not be read.
    if (input_.shape.w == 1) return void(std::fill_n(row, width, 0.0f + *in));
    interpolate(width, row, in, columns_.data(), columnWeights_.data());
}

void RawResizeLayer::nearest(const nolk::Tensor& input, const nolk::Tensor& output) const {
    const nolk::TensorShape& i = input.shape;
    const nolk::TensorShape& o = output.shape;
    if (elementCount(o) == 0) return;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(i.h) * i.w;
    const std::ptrdiff_t outPlane = static_cast<std::ptrdiff_t>(o.h) * o.w;
    for (std::ptrdiff_t n = 0; n < o.n; ++n)
        for (std::ptrdiff_t c = 0; c < o.c; ++c)
            nearestPlane(input.data + (n * i.c + c) * inPlane, output.data + (n * o.c + c) * outPlane);
}

void RawResizeLayer::nearestPlane(const float* in, float* out) const {
    const int width = output_.shape.w;
    for (std::size_t y = 0; y < rows_.size(); ++y, out += width) {
        if (y > 0 && rows_[y] == rows_[y - 1]) {
            std::copy_n(out - width, width, out);
            continue;
        }
        const float* source = in + static_cast<std::ptrdiff_t>(rows_[y]) * input_.shape.w;
        for (int x = 0; x < width; ++x) out[x] = source[columns_[static_cast<std::size_t>(x)]];
    }
}
