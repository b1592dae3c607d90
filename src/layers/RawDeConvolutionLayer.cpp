#include "layers/RawDeConvolutionLayer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "math/lanes.h"

namespace {

// Sums up the products of neighbouring columns: as many as fit kVectors registers, or a single one if kVectors is 0.
template <int kVectors>
void sumUp(const float* in, const float* weights, const RawDeConvolutionLayer::Product* products, std::size_t count,
           float* sums) {
    // A loop, because compilers clear an array with an initialiser in memory, and then keep it there.
    Lanes acc[kVectors];
    for (int v = 0; v < kVectors; ++v) acc[v] = broadcast(0.0f);
    for (std::size_t p = 0; p < count; ++p) {
        const float* values = in + products[p].source;
        const Lanes weight = broadcast(weights[products[p].weight]);
        for (int v = 0; v < kVectors; ++v) acc[v] = fma(loadLanes(values + v * kLanes), weight, acc[v]);
    }
    for (int v = 0; v < kVectors; ++v) storeLanes(sums + v * kLanes, acc[v]);
}

template <>
void sumUp<0>(const float* in, const float* weights, const RawDeConvolutionLayer::Product* products, std::size_t count,
              float* sums) {
    float acc = 0.0f;
    for (std::size_t p = 0; p < count; ++p) acc = std::fma(in[products[p].source], weights[products[p].weight], acc);
    *sums = acc;
}

}  // namespace

RawDeConvolutionLayer::RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding,
                                             nolk::DimsHW stride, const nolk::Weights& weights, FloatArrays* given)
    : input_(input),
      output_(output),
      columnStep_(std::max(stride.w, 1)),
      kernelH_(weights.kernelH),
      kernelW_(weights.kernelW) {
    desc = "deconv";
    const nolk::TensorShape& in = input.shape;
    const nolk::TensorShape& out = output.shape;
    if (elementCount(out) == 0) return;
    for (int o = 0; o < out.c && weights.bias && weights.groups > 0; ++o)
        bias_.push_back(weights.bias[weights.shared ? o % weights.outChannels : o]);
    if (!hasProducts(in, out, weights)) return;
    weight_ = ownedFloats(weights.weight, in.c * out.c * kernelH_ * kernelW_, given);
    rows_ = tapsOf(in.h, out.h, kernelH_, stride.h, padding.top, padding.bottom);
    columns_ = tapsOf(in.w, out.w, kernelW_, stride.w, padding.left, padding.right);
    products_.resize(static_cast<std::size_t>(in.c) * rows_.most() * columns_.most());
}

bool RawDeConvolutionLayer::hasProducts(const nolk::TensorShape& in, const nolk::TensorShape& out,
                                        const nolk::Weights& weights) {
    const bool kernel = static_cast<std::int64_t>(weights.kernelH) * weights.kernelW > 0;
    return kernel && weights.groups > 0 && isRepresentable(out) && elementCount(out) > 0 && elementCount(in) > 0;
}

std::size_t RawDeConvolutionLayer::Taps::most() const {
    std::size_t most = 0;
    for (std::size_t p = 1; p < first.size(); ++p) most = std::max(most, first[p] - first[p - 1]);
    return most;
}

RawDeConvolutionLayer::Taps RawDeConvolutionLayer::tapsOf(int in, int out, int kernel, int stride, int before,
                                                          int after) {
    Taps taps;
    taps.first.assign(static_cast<std::size_t>(out) + 1, 0);
    const std::int64_t bound = static_cast<std::int64_t>(out) + before + after - kernel;
    // Calls f(source, kernel index, output position) in the order of sources.
    const auto forEach = [=](auto f) {
        for (std::int64_t i = 0; i < in && bound >= 0; ++i)
            for (std::int64_t k = 0; k < kernel && i * stride <= bound; ++k) {
                const std::int64_t position = i * stride - before + k;
                if (position >= 0 && position < out)
                    f(static_cast<int>(i), static_cast<int>(k), static_cast<std::size_t>(position));
            }
    };
    forEach([&taps](int, int, std::size_t p) { ++taps.first[p + 1]; });
    for (std::size_t p = 1; p < taps.first.size(); ++p) taps.first[p] += taps.first[p - 1];
    taps.source.resize(taps.first.back());
    taps.kernel.resize(taps.first.back());
    std::vector<std::size_t> next = taps.first;
    forEach([&](int i, int k, std::size_t p) {
        taps.source[next[p]] = i;
        taps.kernel[next[p]++] = k;
    });
    return taps;
}

void RawDeConvolutionLayer::run(AlignedMemory<float>&) {
    const nolk::TensorShape& i = input_.shape;
    const nolk::TensorShape& o = output_.shape;
    if (elementCount(o) == 0) return;
    if (!weight_) return fillWithBias();
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
    return bias_.empty() ? sum : sum + bias_[static_cast<std::size_t>(channel)];
}

// Computes one output row of every channel.
void RawDeConvolutionLayer::runRow(const float* in, float* out, int row) {
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
bool RawDeConvolutionLayer::sameTaps(int column, int count) const {
    const std::int64_t lastColumn = column + static_cast<std::int64_t>(count - 1) * columnStep_;
    if (lastColumn >= output_.shape.w) return false;
    const auto a = static_cast<std::size_t>(column), b = static_cast<std::size_t>(lastColumn);
    const std::size_t taps = columns_.first[a + 1] - columns_.first[a];
    if (taps == 0 || columns_.first[b + 1] - columns_.first[b] != taps) return false;
    const std::size_t first = columns_.first[a], last = columns_.first[b];
    return columns_.kernel[first] == columns_.kernel[last] &&
           columns_.source[first] + count - 1 == columns_.source[last];
}

// Computes output columns that are columnStep_ apart, beginning with `column`, in every channel.
template <int kVectors>
void RawDeConvolutionLayer::gather(const float* in, float* out, int row, int column) {
    constexpr int kColumns = kVectors == 0 ? 1 : kVectors * kLanes;
    const std::size_t count = listProducts(row, column);
    const std::ptrdiff_t kernel = static_cast<std::ptrdiff_t>(kernelH_) * kernelW_;
    const std::ptrdiff_t plane = static_cast<std::ptrdiff_t>(output_.shape.h) * output_.shape.w;
    out += static_cast<std::ptrdiff_t>(row) * output_.shape.w + column;
    for (int c = 0; c < output_.shape.c; ++c, out += plane) {
        float sums[kColumns];
        sumUp<kVectors>(in, weight_.get() + c * kernel, products_.data(), count, sums);
        for (std::ptrdiff_t k = 0; k < kColumns; ++k) out[k * columnStep_] = withBias(sums[k], c);
    }
}

// Lists in products_, in order, the products whose sum is an output element of channel 0; returns their number.
std::size_t RawDeConvolutionLayer::listProducts(int row, int column) {
    const auto r = static_cast<std::size_t>(row), c = static_cast<std::size_t>(column);
    const nolk::TensorShape& s = input_.shape;
    std::size_t count = 0;
    for (std::ptrdiff_t i = 0; i < s.c; ++i)
        for (std::size_t y = rows_.first[r]; y < rows_.first[r + 1]; ++y)
            for (std::size_t x = columns_.first[c]; x < columns_.first[c + 1]; ++x)
                products_[count++] = {
                    (i * s.h + rows_.source[y]) * s.w + columns_.source[x],
                    (i * output_.shape.c * kernelH_ + rows_.kernel[y]) * kernelW_ + columns_.kernel[x]};
    return count;
}
