#include "layers/RawDeConvolutionLayer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "builder/shapes.h"

RawDeConvolutionLayer::RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding,
                                             nolk::DimsHW stride, const nolk::Weights& weights)
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
    inChannels_ = in.c;
    const auto filters = static_cast<std::size_t>(in.c) * static_cast<std::size_t>(out.c);
    const auto taps = static_cast<std::size_t>(kernelH_) * static_cast<std::size_t>(kernelW_);
    weights_.assign(weights.weight, weights.weight + filters * taps);
    rows_ = tapsOf(in.h, out.h, kernelH_, stride.h, padding.top, padding.bottom);
    columns_ = tapsOf(in.w, out.w, kernelW_, stride.w, padding.left, padding.right);
}

bool RawDeConvolutionLayer::hasProducts(const nolk::TensorShape& in, const nolk::TensorShape& out,
                                        const nolk::Weights& weights) {
    const bool kernel = static_cast<std::int64_t>(weights.kernelH) * weights.kernelW > 0;
    return kernel && weights.groups > 0 && isRepresentable(out) && elementCount(out) > 0 && elementCount(in) > 0;
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
    const std::ptrdiff_t inSample = static_cast<std::ptrdiff_t>(i.c) * i.h * i.w;
    for (std::ptrdiff_t n = 0; n < o.n; ++n)
        for (int row = 0; row < o.h; ++row)
            for (int c = 0; c < o.c; ++c)
                runRow(input_.data + n * inSample, output_.data + ((n * o.c + c) * o.h + row) * o.w, c, row);
}

void RawDeConvolutionLayer::runRow(const float* in, float* out, int channel, int row) const {
    const int width = output_.shape.w;
    if (inChannels_ == 0) {
        std::fill_n(out, width, bias_.empty() ? 0.0f : 0.0f + bias_[static_cast<std::size_t>(channel)]);
        return;
    }
    constexpr int kWide = 32, kNarrow = 8;
    for (int phase = 0; phase < std::min(columnStep_, width); ++phase) {
        std::int64_t column = phase;
        const auto fits = [&](int count) {
            const std::int64_t last = column + static_cast<std::int64_t>(count - 1) * columnStep_;
            return last < width && sameTaps(static_cast<int>(column), static_cast<int>(last), count - 1);
        };
        while (column < width) {
            const int c = static_cast<int>(column);
            if (fits(kWide)) {
                gather<kWide>(in, out, channel, row, c);
                column += static_cast<std::int64_t>(kWide) * columnStep_;
            } else if (fits(kNarrow)) {
                gather<kNarrow>(in, out, channel, row, c);
                column += static_cast<std::int64_t>(kNarrow) * columnStep_;
            } else {
                gather<1>(in, out, channel, row, c);
                column += columnStep_;
            }
        }
    }
}

// Whether the columns between take the same kernel columns, from sources that rise by one: it is enough that both ends
// do, since a kernel column serves an unbroken range of sources.
bool RawDeConvolutionLayer::sameTaps(int column, int lastColumn, int distance) const {
    const auto a = static_cast<std::size_t>(column), b = static_cast<std::size_t>(lastColumn);
    const std::size_t taps = columns_.first[a + 1] - columns_.first[a];
    if (taps == 0 || columns_.first[b + 1] - columns_.first[b] != taps) return false;
    const std::size_t first = columns_.first[a], last = columns_.first[b];
    return columns_.kernel[first] == columns_.kernel[last] &&
           columns_.source[first] + distance == columns_.source[last];
}

// kCount output columns, columnStep_ apart, in registers.
template <int kCount>
void RawDeConvolutionLayer::gather(const float* in, float* out, int channel, int row, int column) const {
    const auto r = static_cast<std::size_t>(row), c = static_cast<std::size_t>(column);
    const std::ptrdiff_t inRow = input_.shape.w, inPlane = inRow * input_.shape.h;
    const std::ptrdiff_t taps = static_cast<std::ptrdiff_t>(kernelH_) * kernelW_;
    float sums[kCount] = {};
    for (std::ptrdiff_t i = 0; i < inChannels_; ++i) {
        const float* filter = weights_.data() + (i * output_.shape.c + channel) * taps;
        for (std::size_t y = rows_.first[r]; y < rows_.first[r + 1]; ++y) {
            const float* source = in + i * inPlane + rows_.source[y] * inRow;
            const float* kernelRow = filter + static_cast<std::ptrdiff_t>(rows_.kernel[y]) * kernelW_;
            for (std::size_t x = columns_.first[c]; x < columns_.first[c + 1]; ++x) {
                const float weight = kernelRow[columns_.kernel[x]];
                const float* values = source + columns_.source[x];
                for (int k = 0; k < kCount; ++k) sums[k] = std::fma(values[k], weight, sums[k]);
            }
        }
    }
    const bool hasBias = !bias_.empty();
    const float bias = hasBias ? bias_[static_cast<std::size_t>(channel)] : 0.0f;
    for (std::ptrdiff_t k = 0; k < kCount; ++k) out[column + k * columnStep_] = hasBias ? sums[k] + bias : sums[k];
}
