#include "layers/RawDeConvolutionLayer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "math/lanes.h"

namespace {

// Adds the products of neighbouring columns to sums, which begin with 0 if isFirst: as many columns as fit kVectors
// registers, or a single one if kVectors is 0.
template <int kVectors>
void sumUp(const float* in, const float* weights, const RawDeConvolutionLayer::Product* products, std::size_t count,
           bool isFirst, float* sums) {
    // A loop, because compilers clear an array with an initialiser in memory, and then keep it there.
    Lanes acc[kVectors];
    for (int v = 0; v < kVectors; ++v) acc[v] = isFirst ? broadcast(0.0f) : loadLanes(sums + v * kLanes);
    for (std::size_t p = 0; p < count; ++p) {
        const float* values = in + products[p].source;
        const Lanes weight = broadcast(weights[products[p].weight]);
        for (int v = 0; v < kVectors; ++v) acc[v] = fma(loadLanes(values + v * kLanes), weight, acc[v]);
    }
    for (int v = 0; v < kVectors; ++v) storeLanes(sums + v * kLanes, acc[v]);
}

template <>
void sumUp<0>(const float* in, const float* weights, const RawDeConvolutionLayer::Product* products, std::size_t count,
              bool isFirst, float* sums) {
    float acc = isFirst ? 0.0f : *sums;
    for (std::size_t p = 0; p < count; ++p) acc = std::fma(in[products[p].source], weights[products[p].weight], acc);
    *sums = acc;
}

// Division by a positive number, rounded up and down.
std::int64_t upwards(std::int64_t a, std::int64_t b) { return a / b + (a % b > 0 ? 1 : 0); }
std::int64_t downwards(std::int64_t a, std::int64_t b) { return a / b - (a % b < 0 ? 1 : 0); }

}  // namespace

// Some of the products whose sum is an output element.
struct RawDeConvolutionLayer::Part {
    static constexpr std::size_t kSize = 1024;

    Product products[kSize];
    std::size_t count = 0;
    bool isFirst = true, isLast = false;
};

RawDeConvolutionLayer::RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding,
                                             nolk::DimsHW stride, std::shared_ptr<const Arrays> arrays)
    : input_(input),
      output_(output),
      columnStep_(std::max(stride.w, 1)),
      rows_(axisOf(input.shape.h, output.shape.h, arrays->kernelH, stride.h, padding.top, padding.bottom)),
      columns_(axisOf(input.shape.w, output.shape.w, arrays->kernelW, stride.w, padding.left, padding.right)),
      arrays_(std::move(arrays)) {
    desc = "deconv";
}

std::shared_ptr<const RawDeConvolutionLayer::Arrays> RawDeConvolutionLayer::arraysOf(const nolk::TensorShape& in,
                                                                                     const nolk::TensorShape& out,
                                                                                     const nolk::Weights& weights,
                                                                                     FloatArrays* given) {
    auto arrays = std::make_shared<Arrays>(Arrays{weights.kernelH, weights.kernelW, nullptr, {}});
    if (elementCount(out) == 0) return arrays;
    if (weights.bias && weights.groups > 0) {
        arrays->bias.resize(static_cast<std::size_t>(out.c));
        for (int o = 0; o < out.c; ++o)
            arrays->bias[static_cast<std::size_t>(o)] = weights.bias[weights.shared ? o % weights.outChannels : o];
    }
    if (hasProducts(in, out, weights))
        arrays->weight = ownedFloats(weights.weight, in.c * out.c * weights.kernelH * weights.kernelW, given);
    return arrays;
}

bool RawDeConvolutionLayer::hasProducts(const nolk::TensorShape& in, const nolk::TensorShape& out,
                                        const nolk::Weights& weights) {
    const bool kernel = static_cast<std::int64_t>(weights.kernelH) * weights.kernelW > 0;
    return kernel && weights.groups > 0 && isRepresentable(out) && elementCount(out) > 0 && elementCount(in) > 0;
}

RawDeConvolutionLayer::Axis RawDeConvolutionLayer::axisOf(int in, int out, int kernel, int stride, int before,
                                                          int after) {
    return {in, out, kernel, stride, before, static_cast<std::int64_t>(out) + before + after - kernel};
}

// Computed for each position, because with a stride of 0 or below every position may receive every source.
RawDeConvolutionLayer::Taps RawDeConvolutionLayer::tapsAt(const Axis& axis, std::int64_t position) {
    const std::int64_t kernelOfFirst = position + axis.before;  // kernel index of source 0
    std::int64_t first = 0, last = axis.bound < 0 ? -1 : axis.in - 1;
    if (axis.stride > 0) {
        first = std::max(first, upwards(kernelOfFirst - axis.kernel + 1, axis.stride));
        last = std::min({last, downwards(kernelOfFirst, axis.stride), downwards(axis.bound, axis.stride)});
    } else if (axis.stride < 0) {
        const std::int64_t step = -static_cast<std::int64_t>(axis.stride);
        first = std::max(first, upwards(-kernelOfFirst, step));
        last = std::min(last, downwards(axis.kernel - 1 - kernelOfFirst, step));
    } else if (kernelOfFirst < 0 || kernelOfFirst >= axis.kernel) {
        last = -1;
    }
    return {first, kernelOfFirst - first * axis.stride, std::max<std::int64_t>(last - first + 1, 0)};
}

void RawDeConvolutionLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& i = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    if (elementCount(o) == 0) return;
    if (!arrays_->weight) return fillWithBias();
    const std::ptrdiff_t inSample = static_cast<std::ptrdiff_t>(i.c) * i.h * i.w;
    const std::ptrdiff_t outSample = static_cast<std::ptrdiff_t>(o.c) * o.h * o.w;
    for (std::ptrdiff_t n = 0; n < o.n; ++n)
        for (int row = 0; row < o.h; ++row) runRow(input_.data + n * inSample, output_.data + n * outSample, row);
}

void RawDeConvolutionLayer::fillWithBias() const {
    const int plane = output_.shape.h * output_.shape.w;
    float* out = output_.data;
    for (int n = 0; n < output_.shape.n; ++n)
        for (int c = 0; c < output_.shape.c; ++c, out += plane) std::fill_n(out, plane, withBias(0.0f, c));
}

float RawDeConvolutionLayer::withBias(float sum, int channel) const {
    return arrays_->bias.empty() ? sum : sum + arrays_->bias[static_cast<std::size_t>(channel)];
}

// Computes one output row of every channel.
void RawDeConvolutionLayer::runRow(const float* in, float* out, int row) const {
    const int width = output_.shape.w;
    for (int phase = 0; phase < std::min(columnStep_, width); ++phase) {
        std::int64_t column = phase;
        while (column < width) {
            const int first = static_cast<int>(column);
            int vectors = 8;
            while (vectors > 0 && !sameTaps(first, vectors * kLanes)) vectors /= 2;
            if (vectors == 8) gather<8>(in, out, row, first);
            if (vectors == 4) gather<4>(in, out, row, first);
            if (vectors == 2) gather<2>(in, out, row, first);
            if (vectors == 1) gather<1>(in, out, row, first);
            if (vectors == 0) gather<0>(in, out, row, first);
            column += static_cast<std::int64_t>(columnStep_) * std::max(vectors * kLanes, 1);
        }
    }
}

// Whether there are `count` output columns, beginning with `column` and columnStep_ apart, that use the same kernel
// columns, each with the source after that of the column before. It is enough to check the first and the last, because
// a kernel column is used with a contiguous range of sources.
bool RawDeConvolutionLayer::sameTaps(std::int64_t column, int count) const {
    const std::int64_t lastColumn = column + static_cast<std::int64_t>(count - 1) * columnStep_;
    if (lastColumn >= output_.shape.w) return false;
    const Taps first = tapsAt(columns_, column), last = tapsAt(columns_, lastColumn);
    return first.count > 0 && last.count == first.count && last.kernel == first.kernel &&
           last.source == first.source + count - 1;
}

// Computes output columns that are columnStep_ apart, beginning with `column`, in every channel. Goes through the
// products of channel 0 in order; the other channels differ only in where their weights begin.
template <int kVectors>
void RawDeConvolutionLayer::gather(const float* in, float* out, int row, int column) const {
    const Taps rows = tapsAt(rows_, row), columns = tapsAt(columns_, column);
    const nolk::TensorShape& s = input_.shape;
    const std::ptrdiff_t channels = rows.count > 0 && columns.count > 0 ? s.c : 0;
    out += static_cast<std::ptrdiff_t>(row) * output_.shape.w + column;
    Part part;
    for (std::ptrdiff_t i = 0; i < channels; ++i)
        for (std::ptrdiff_t y = 0; y < rows.count; ++y) {
            const std::ptrdiff_t source = (i * s.h + rows.source + y) * s.w + columns.source;
            const std::ptrdiff_t kernelRow = i * output_.shape.c * rows_.kernel + rows.kernel - y * rows_.stride;
            const std::ptrdiff_t weight = kernelRow * columns_.kernel + columns.kernel;
            for (std::ptrdiff_t x = 0; x < columns.count; ++x) {
                if (part.count == Part::kSize) {
                    addUp<kVectors>(in, out, part);
                    part.isFirst = false;
                    part.count = 0;
                }
                part.products[part.count++] = {source + x, weight - x * columns_.stride};
            }
        }
    part.isLast = true;
    addUp<kVectors>(in, out, part);
}

// Adds the products of a part to the output columns of every channel.
template <int kVectors>
void RawDeConvolutionLayer::addUp(const float* in, float* out, const Part& part) const {
    constexpr int kColumns = kVectors == 0 ? 1 : kVectors * kLanes;
    const std::ptrdiff_t kernel = static_cast<std::ptrdiff_t>(rows_.kernel) * columns_.kernel;
    const std::ptrdiff_t plane = static_cast<std::ptrdiff_t>(output_.shape.h) * output_.shape.w;
    for (int c = 0; c < output_.shape.c; ++c, out += plane) {
        float sums[kColumns];
        for (std::ptrdiff_t k = 0; k < kColumns && !part.isFirst; ++k) sums[k] = out[k * columnStep_];
        sumUp<kVectors>(in, arrays_->weight.get() + c * kernel, part.products, part.count, part.isFirst, sums);
        for (std::ptrdiff_t k = 0; k < kColumns; ++k)
            out[k * columnStep_] = part.isLast ? withBias(sums[k], c) : sums[k];
    }
}
