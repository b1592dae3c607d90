#include "layers/RawConvolutionLayer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "layers/weights.h"
#include "math/blas.h"
#include "math/transposeTile.h"

RawConvolutionLayer::RawConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding,
                                         nolk::DimsHW stride, nolk::DimsHW dilation, const nolk::Weights& weights,
                                         int numThreads, int gemmThresh, FloatArrays* given)
    : padding_(padding),
      stride_(stride),
      dilation_(dilation),
      weights_(weights),
      // The counts have not been checked if the output is empty.
      weight_(ownedFloats(weights.weight, elementCount(output.shape) > 0 ? weightCount(weights) : 0, given)),
      bias_(ownedFloats(weights.bias, elementCount(output.shape) > 0 ? biasCount(weights) : 0, given)),
      input_(input),
      output_(output),
      numThreads_(numThreads),
      gemmThresh_(gemmThresh) {
    weights_.weight = weight_.get();
    weights_.bias = bias_.get();
    desc = "conv";
    const bool hasTaps = weights_.kernelH > 0 && weights_.kernelW > 0;
    if (!hasTaps || elementCount(output_.shape) == 0 || isPointwise(weights_, padding_, stride_)) return;
    const Range inside = insideColumns();
    if (inside.begin == inside.end) return;
    taps_.reserve(static_cast<std::size_t>(tapCount()));
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(input_.shape.h) * input_.shape.w;
    for (int ic = 0; ic < weights_.inChannels; ++ic)
        for (int kh = 0; kh < weights_.kernelH; ++kh)
            for (int kw = 0; kw < weights_.kernelW; ++kw)
                taps_.push_back({ic * inPlane + kw * dilation_.w, kh * dilation_.h});
}

bool RawConvolutionLayer::isPointwise(const nolk::Weights& weights, const nolk::Padding& padding,
                                      const nolk::DimsHW& stride) {
    return weights.kernelH == 1 && weights.kernelW == 1 && padding.top == 0 && padding.bottom == 0 &&
           padding.left == 0 && padding.right == 0 && stride.h == 1 && stride.w == 1;
}

void RawConvolutionLayer::run(AlignedMemory<float>& scratch) {
    const nolk::TensorShape& in = input_.shape;
    const nolk::TensorShape& out = output_.shape;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(in.h) * in.w;
    const std::ptrdiff_t outPlane = static_cast<std::ptrdiff_t>(out.h) * out.w;
    // Shared weights have the values of one group, which all groups use.
    const std::ptrdiff_t groupWeights = weights_.shared ? 0
                                                        : static_cast<std::ptrdiff_t>(weights_.outChannels) *
                                                              weights_.inChannels * weights_.kernelH * weights_.kernelW;
    if (elementCount(out) == 0) return;
    for (std::ptrdiff_t b = 0; b < out.n; ++b)
        for (int g = 0; g < weights_.groups; ++g) {
            float* y = output_.data + (b * out.c + static_cast<std::ptrdiff_t>(g) * weights_.outChannels) * outPlane;
            const float* x = input_.data + (b * in.c + static_cast<std::ptrdiff_t>(g) * weights_.inChannels) * inPlane;
            multiply(weight_.get() + g * groupWeights, x, y, scratch);
            if (bias_) addBias(y, g);
        }
}

void RawConvolutionLayer::multiply(const float* weights, const float* input, float* output,
                                   AlignedMemory<float>& scratch) const {
    const int m = weights_.outChannels;
    const int k = weights_.inChannels * weights_.kernelH * weights_.kernelW;
    const int n = output_.shape.h * output_.shape.w;
    if (isPointwise(weights_, padding_, stride_)) {
        gemmMajRowRowRow(weights, input, output, m, k, n, numThreads_, gemmThresh_);
        return;
    }
    float* columns = scratch.growTo(k * n);
    im2col(columns, input);
    gemmMajRowColRow(weights, columns, output, m, k, n, numThreads_, gemmThresh_);
}

void RawConvolutionLayer::addBias(float* output, int group) const {
    const int plane = output_.shape.h * output_.shape.w;
    const float* bias = bias_.get() + (weights_.shared ? 0 : static_cast<std::ptrdiff_t>(group) * weights_.outChannels);
    for (int o = 0; o < weights_.outChannels; ++o)
        vectorAdd(plane, output + static_cast<std::ptrdiff_t>(o) * plane, bias[o]);
}

void RawConvolutionLayer::im2col(float* columns, const float* input) const {
    if (weights_.inChannels < 1 || weights_.kernelH < 1 || weights_.kernelW < 1) return;
    const int outW = output_.shape.w;
    const Range inside = insideColumns();
    for (int oh = 0; oh < output_.shape.h; ++oh) {
        float* row = columns + static_cast<std::ptrdiff_t>(oh) * outW * tapCount();
        copyWindows(row, input, oh, {0, inside.begin});
        if (stride_.w == 1)
            copyTiles<1>(row, input, oh, inside);
        else
            copyTiles<2>(row, input, oh, inside);
        copyWindows(row, input, oh, {inside.end, outW});
    }
}

// Output columns that copyTiles can fill: their windows lie completely inside the input's rows.
RawConvolutionLayer::Range RawConvolutionLayer::insideColumns() const {
    const int stride = stride_.w;
    if ((stride != 1 && stride != 2) || dilation_.w < 0 || tapCount() < kTile) return {0, 0};
    const std::int64_t outW = output_.shape.w;
    const std::int64_t lastTap = static_cast<std::int64_t>(weights_.kernelW - 1) * dilation_.w;
    const std::int64_t left = padding_.left;
    const std::int64_t begin = std::clamp<std::int64_t>((left + stride - 1) / stride, 0, outW);
    const std::int64_t positions = input_.shape.w + left - lastTap;  // of a window's left edge, left padding included
    const std::int64_t end = std::min((positions + stride - 1) / stride, outW);
    if (end - begin < kTile) return {0, 0};
    return {static_cast<int>(begin), static_cast<int>(end)};
}

// Copies eight taps of eight windows at a time. It transposes them: in the input the same tap of neighbouring windows
// is adjacent (kStride apart), in the columns the taps of one window are. The last tile in each direction is moved back
// to fit, so it may overlap the one before.
template <int kStride>
void RawConvolutionLayer::copyTiles(float* columns, const float* input, int outRow, Range outColumns) const {
    static constexpr float kZeros[kTile * kStride] = {};
    const int count = tapCount();
    for (int tap = 0; outColumns.begin < outColumns.end && tap < count; tap += kTile) {
        const int firstTap = std::min(tap, count - kTile);
        const float* rows[kTile];
        for (int i = 0; i < kTile; ++i) rows[i] = tapRow(input, outRow, taps_.data()[firstTap + i]);
        for (int ow = outColumns.begin; ow < outColumns.end; ow += kTile) {
            const int first = std::min(ow, outColumns.end - kTile);
            const float* in[kTile];
            for (int i = 0; i < kTile; ++i) in[i] = rows[i] ? rows[i] + (first * kStride - padding_.left) : kZeros;
            float* dst = columns + static_cast<std::ptrdiff_t>(first) * count + firstTap;
            // The columns do not fit the near caches, and are too far apart for the hardware prefetcher.
            for (int i = 0; i < kTile; ++i)
                __builtin_prefetch(dst + static_cast<std::ptrdiff_t>(i) * count + 3 * kTile, 1);
            transposeTile<kStride>(in, dst, count);
        }
    }
}

// The address that the tap reads for the first window of an output row; null if it is outside the input.
const float* RawConvolutionLayer::tapRow(const float* input, int outRow, const Tap& tap) const {
    const float* row = sourceRow(input, outRow * stride_.h - padding_.top + tap.row);
    return row ? row + tap.offset : nullptr;
}

void RawConvolutionLayer::copyWindows(float* columns, const float* input, int outRow, Range outColumns) const {
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(input_.shape.h) * input_.shape.w;
    float* dst = columns + static_cast<std::ptrdiff_t>(outColumns.begin) * tapCount();
    for (int ow = outColumns.begin; ow < outColumns.end; ++ow)
        for (int ic = 0; ic < weights_.inChannels; ++ic)
            for (int kh = 0; kh < weights_.kernelH; ++kh, dst += weights_.kernelW) {
                const int row = outRow * stride_.h - padding_.top + kh * dilation_.h;
                copyRow(dst, sourceRow(input + ic * inPlane, row), ow * stride_.w - padding_.left);
            }
}

// Copies one row of a window, starting at firstColumn of an input row; row is null outside the input.
void RawConvolutionLayer::copyRow(float* dst, const float* row, int firstColumn) const {
    const int width = weights_.kernelW;
    const int inW = input_.shape.w;
    // A width may be negative, so the difference is taken only where it cannot wrap.
    if (row && dilation_.w == 1 && firstColumn >= 0 && firstColumn < inW && width <= inW - firstColumn) {
        // Most kernels are three wide. A copy of constant length needs no function call.
        if (width == 3)
            std::memcpy(dst, row + firstColumn, 3 * sizeof(float));
        else
            std::copy_n(row + firstColumn, width, dst);
        return;
    }
    for (int kw = 0; kw < width; ++kw) {
        const int iw = firstColumn + kw * dilation_.w;
        dst[kw] = row && iw >= 0 && iw < inW ? row[iw] : 0.0f;
    }
}

const float* RawConvolutionLayer::sourceRow(const float* channel, int row) const {
    if (row < 0 || row >= input_.shape.h) return nullptr;
    return channel + static_cast<std::ptrdiff_t>(row) * input_.shape.w;
}

void RawConvolutionLayer::algo() const {
    const nolk::TensorShape& in = input_.shape;
    const nolk::TensorShape& out = output_.shape;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(in.h) * in.w;
    float* y = output_.data;
    for (std::ptrdiff_t b = 0; b < in.n; ++b)
        for (int oc = 0; oc < weights_.groups * weights_.outChannels; ++oc) {
            const int g = oc / weights_.outChannels;
            const std::ptrdiff_t weightRow = weights_.shared ? oc % weights_.outChannels : oc;
            const float* x = input_.data + (b * in.c + static_cast<std::ptrdiff_t>(g) * weights_.inChannels) * inPlane;
            for (int oh = 0; oh < out.h; ++oh)
                for (int ow = 0; ow < out.w; ++ow) *y++ = windowSum(x, weightRow, oh, ow);
        }
}

float RawConvolutionLayer::windowSum(const float* input, std::ptrdiff_t weightRow, int outRow, int outColumn) const {
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(input_.shape.h) * input_.shape.w;
    const float* w = weight_.get() +
                     weightRow * weights_.inChannels * static_cast<std::ptrdiff_t>(weights_.kernelH) * weights_.kernelW;
    float sum = bias_ ? bias_[static_cast<std::size_t>(weightRow)] : 0.0f;
    for (int ic = 0; ic < weights_.inChannels; ++ic)
        for (int kh = 0; kh < weights_.kernelH; ++kh) {
            const float* row = sourceRow(input + ic * inPlane, outRow * stride_.h - padding_.top + kh * dilation_.h);
            for (int kw = 0; kw < weights_.kernelW; ++kw, ++w) {
                const int iw = outColumn * stride_.w - padding_.left + kw * dilation_.w;
                if (row && iw >= 0 && iw < input_.shape.w) sum = std::fma(row[iw], *w, sum);
            }
        }
    return sum;
}
