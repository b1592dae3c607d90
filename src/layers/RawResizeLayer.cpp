#include "layers/RawResizeLayer.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "builder/shapes.h"
#include "math/interpolate.h"

namespace {

constexpr int kTile = 4096;

int nearestIndex(int in, int out, int index) {
    const double scale = static_cast<double>(in) / out;
    return std::min(static_cast<int>(index * scale), in - 1);
}

}  // namespace

// Positions begin to begin + count - 1 of the output along one dimension, with what a plane needs to compute them.
struct RawResizeLayer::Span {
    int begin, count;
    int* sources;
    float* weights;  // pairs
};

// A part of every plane, for which the tables fit a small scratch memory.
struct RawResizeLayer::Tile {
    Span rows, columns;
    float *above, *below;  // two source rows, interpolated to the tile's width
};

RawResizeLayer::RawResizeLayer(nolk::Tensor input, nolk::Tensor output, nolk::ResizeMode mode,
                               nolk::ResizeTransMode transMode)
    : input_(input), output_(output), mode_(mode), transMode_(transMode) {
    desc = "resize";
}

void RawResizeLayer::linear_coeffs(int in, int out, int* offsets, float* weights, int transMode) {
    linear_coeffs(in, out, 0, out, offsets, weights, transMode);
}

void RawResizeLayer::linear_coeffs(int in, int out, int begin, int count, int* offsets, float* weights, int transMode) {
    const bool halfPixel = transMode == 0;
    // A single output index would divide by 0; it takes the first value.
    const double scale = halfPixel ? static_cast<double>(in) / out : (out > 1 ? (in - 1.0) / (out - 1.0) : 0.0);
    for (std::ptrdiff_t d = 0; d < count; ++d) {
        const double index = static_cast<double>(begin + d);
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

void RawResizeLayer::run(AlignedMemory<float>& scratch) {
    switch (mode_) {
        case nolk::ResizeMode::linear:
            return linner(scratch);
        case nolk::ResizeMode::nearest:
            return nearest(scratch);
    }
    std::puts("not suppot yet");
    std::exit(0);
}

// Calls compute for tiles that cover the output's planes. The tables are in scratch memory, not in the layer, because a
// network may have very many layers.
template <typename Compute>
void RawResizeLayer::forEachTile(AlignedMemory<float>& scratch, Compute compute) const {
    const int height = output_.shape.h, width = output_.shape.w;
    const int maxRows = std::min(height, kTile), maxColumns = std::min(width, kTile);
    float* const floats = scratch.growTo(2 * maxRows + 4 * maxColumns + maxRows + maxColumns);
    float *const rowWeights = floats, *const columnWeights = rowWeights + 2 * maxRows;
    float *const above = columnWeights + 2 * maxColumns, *const below = above + maxColumns;
    static_assert(sizeof(int) == sizeof(float) && alignof(int) == alignof(float));
    int* const sources = reinterpret_cast<int*>(below + maxColumns);
    for (int row = 0; row < height; row += std::min(kTile, height - row))
        for (int column = 0; column < width; column += std::min(kTile, width - column)) {
            Tile tile{{row, std::min(kTile, height - row), sources, rowWeights},
                      {column, std::min(kTile, width - column), sources + maxRows, columnWeights},
                      above,
                      below};
            fill(tile.rows, input_.shape.h, height);
            fill(tile.columns, input_.shape.w, width);
            compute(tile);
        }
}

void RawResizeLayer::fill(const Span& span, int in, int out) const {
    if (mode_ == nolk::ResizeMode::linear)
        return linear_coeffs(in, out, span.begin, span.count, span.sources, span.weights, static_cast<int>(transMode_));
    for (int i = 0; i < span.count; ++i) span.sources[i] = nearestIndex(in, out, span.begin + i);
}

void RawResizeLayer::linner(AlignedMemory<float>& scratch) const {
    const nolk::TensorShape& i = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    if (elementCount(i) == 0 || elementCount(o) == 0) return;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(i.h) * i.w;
    const std::ptrdiff_t outPlane = static_cast<std::ptrdiff_t>(o.h) * o.w;
    const auto forEachPlane = [&](auto compute) {
        for (std::ptrdiff_t n = 0; n < i.n; ++n)
            for (std::ptrdiff_t c = 0; c < i.c; ++c)
                compute(input_.data + (n * i.c + c) * inPlane, output_.data + (n * o.c + c) * outPlane);
    };
    if (inPlane == 1)
        forEachPlane([outPlane](const float* in, float* out) { std::fill_n(out, outPlane, *in); });
    else
        forEachTile(scratch,
                    [&](Tile& tile) { forEachPlane([&](const float* in, float* out) { linearTile(in, out, tile); }); });
}

// Neighbouring output rows often use the same two source rows, so these are kept in interpolated form. Moving on by one
// source row then needs only one row to be interpolated.
void RawResizeLayer::linearTile(const float* in, float* out, Tile& tile) const {
    const int width = tile.columns.count;
    // If the input has only one row, the row above it does not exist. It has weight 0, and its values stay zero.
    std::fill_n(tile.above, width, 0.0f);
    std::fill_n(tile.below, width, 0.0f);
    int previous = -2;
    out += static_cast<std::ptrdiff_t>(tile.rows.begin) * output_.shape.w + tile.columns.begin;
    for (int y = 0; y < tile.rows.count; ++y, out += output_.shape.w) {
        const int source = tile.rows.sources[y];
        const float* next = in + (static_cast<std::ptrdiff_t>(source) + 1) * input_.shape.w;
        if (source == previous + 1)
            std::swap(tile.above, tile.below);
        else if (source != previous)
            interpolateRow(next - input_.shape.w, tile.above, tile.columns);
        if (source != previous) interpolateRow(next, tile.below, tile.columns);
        previous = source;
        const float b0 = tile.rows.weights[2 * y], b1 = tile.rows.weights[2 * y + 1];
        const float* above = tile.above;
        const float* below = tile.below;
        for (int x = 0; x < width; ++x) out[x] = b0 * above[x] + b1 * below[x];
    }
}

void RawResizeLayer::interpolateRow(const float* in, float* row, const Span& columns) const {
    // The only column has weight 1. The one before it has weight 0 and does not exist, so it must not be read.
    if (input_.shape.w == 1) return void(std::fill_n(row, columns.count, 0.0f + *in));
    interpolate(columns.count, row, in, columns.sources, columns.weights);
}

void RawResizeLayer::nearest(AlignedMemory<float>& scratch) const {
    const nolk::TensorShape& i = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    if (elementCount(o) == 0) return;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(i.h) * i.w;
    const std::ptrdiff_t outPlane = static_cast<std::ptrdiff_t>(o.h) * o.w;
    forEachTile(scratch, [&](const Tile& tile) {
        for (std::ptrdiff_t n = 0; n < o.n; ++n)
            for (std::ptrdiff_t c = 0; c < o.c; ++c)
                nearestTile(input_.data + (n * i.c + c) * inPlane, output_.data + (n * o.c + c) * outPlane, tile);
    });
}

void RawResizeLayer::nearestTile(const float* in, float* out, const Tile& tile) const {
    const int* const rows = tile.rows.sources;
    const int width = output_.shape.w;
    out += static_cast<std::ptrdiff_t>(tile.rows.begin) * width + tile.columns.begin;
    for (int y = 0; y < tile.rows.count; ++y, out += width) {
        if (y > 0 && rows[y] == rows[y - 1]) {
            std::copy_n(out - width, tile.columns.count, out);
            continue;
        }
        const float* source = in + static_cast<std::ptrdiff_t>(rows[y]) * input_.shape.w;
        for (int x = 0; x < tile.columns.count; ++x) out[x] = source[tile.columns.sources[x]];
    }
}
