#include "layers/RawConvolutionLayer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "builder/shapes.h"
#include "layers/ownedFloats.h"
#include "layers/weights.h"

namespace {

// Positions whose windows are copied together: few enough for their columns to stay in the first-level cache, so that
// every line of it is filled before it leaves.
constexpr int kBlock = 8;

// Copies count windows of a row, kWidth contiguous values each, step apart in the source and pitch apart in the
// columns.
template <int kWidth>
void copyWindows(float* dst, std::ptrdiff_t pitch, const float* src, int step, int count) {
    for (int i = 0; i < count; ++i) std::memcpy(dst + i * pitch, src + i * step, kWidth * sizeof(float));
}

void copyWindows(float* dst, std::ptrdiff_t pitch, const float* src, int step, int count, int width) {
    switch (width) {
        case 1:
            return copyWindows<1>(dst, pitch, src, step, count);
        case 3:
            return copyWindows<3>(dst, pitch, src, step, count);
        case 5:
            return copyWindows<5>(dst, pitch, src, step, count);
        case 7:
            return copyWindows<7>(dst, pitch, src, step, count);
        default:
            for (int i = 0; i < count; ++i) std::copy_n(src + i * step, width, dst + i * pitch);
    }
}

void clearWindows(float* dst, std::ptrdiff_t pitch, int count, int width) {
    for (int i = 0; i < count; ++i) std::fill_n(dst + i * pitch, width, 0.0f);
}

}  // namespace

RawConvolutionLayer::RawConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding,
                                         nolk::DimsHW stride, nolk::DimsHW dilation, const nolk::Weights& weights,
                                         int numThreads, int gemmThresh)
    : padding_(padding),
      stride_(stride),
      dilation_(dilation),
      weights_(weights),
      weight_(ownedFloats(weights.weight, weightCount(weights))),
      bias_(ownedFloats(weights.bias, biasCount(weights))),
      input_(input),
      output_(output),
      numThreads_(numThreads),
      gemmThresh_(gemmThresh) {
    weights_.weight = weight_.get();
    weights_.bias = bias_.get();
    desc = "conv";
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
    // Shared weights are one group's, for all of them.
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
    const std::ptrdiff_t rowLength =
        static_cast<std::ptrdiff_t>(outW) * weights_.inChannels * weights_.kernelH * weights_.kernelW;
    const Range inside = insideColumns();
    for (int oh = 0; oh < output_.shape.h; ++oh, columns += rowLength) {
        copyBorder(columns, input, oh, {0, inside.begin});
        for (int ow = inside.begin; ow < inside.end; ow += kBlock)
            copyInside(columns, input, oh, {ow, std::min(ow + kBlock, inside.end)});
        copyBorder(columns, input, oh, {inside.end, outW});
    }
}

// Output columns whose windows lie within a row as contiguous values; none for a dilation or an odd stride.
RawConvolutionLayer::Range RawConvolutionLayer::insideColumns() const {
    const std::int64_t outW = output_.shape.w;
    const std::int64_t stride = stride_.w;
    const std::int64_t left = padding_.left;
    if (dilation_.w != 1 || stride < 1 || left < 0) return {0, 0};
    const std::int64_t room = input_.shape.w + left - weights_.kernelW;
    const std::int64_t begin = std::min((left + stride - 1) / stride, outW);
    const std::int64_t end = room < 0 ? begin : std::clamp(room / stride + 1, begin, outW);
    return {static_cast<int>(begin), static_cast<int>(end)};
}

const float* RawConvolutionLayer::sourceRow(const float* channel, int outRow, int kernelRow) const {
    const int row = outRow * stride_.h - padding_.top + kernelRow * dilation_.h;
    if (row < 0 || row >= input_.shape.h) return nullptr;
    return channel + static_cast<std::ptrdiff_t>(row) * input_.shape.w;
}

void RawConvolutionLayer::copyInside(float* columns, const float* input, int outRow, Range outColumns) const {
    const int width = weights_.kernelW;
    const std::ptrdiff_t pitch = static_cast<std::ptrdiff_t>(weights_.inChannels) * weights_.kernelH * width;
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(input_.shape.h) * input_.shape.w;
    const int count = outColumns.end - outColumns.begin;
    const int firstColumn = outColumns.begin * stride_.w - padding_.left;
    float* dst = columns + outColumns.begin * pitch;
    for (int ic = 0; ic < weights_.inChannels; ++ic, input += inPlane)
        for (int kh = 0; kh < weights_.kernelH; ++kh, dst += width) {
            const float* row = sourceRow(input, outRow, kh);
            if (row)
                copyWindows(dst, pitch, row + firstColumn, stride_.w, count, width);
            else
                clearWindows(dst, pitch, count, width);
        }
}

void RawConvolutionLayer::copyBorder(float* columns, const float* input, int outRow, Range outColumns) const {
    const std::ptrdiff_t inPlane = static_cast<std::ptrdiff_t>(input_.shape.h) * input_.shape.w;
    float* dst = columns + static_cast<std::ptrdiff_t>(outColumns.begin) * weights_.inChannels * weights_.kernelH *
                               weights_.kernelW;
    for (int ow = outColumns.begin; ow < outColumns.end; ++ow)
        for (int ic = 0; ic < weights_.inChannels; ++ic)
            for (int kh = 0; kh < weights_.kernelH; ++kh) {
                const float* row = sourceRow(input + ic * inPlane, outRow, kh);
                for (int kw = 0; kw < weights_.kernelW; ++kw) {
                    const int iw = ow * stride_.w - padding_.left + kw * dilation_.w;
                    *dst++ = row && iw >= 0 && iw < input_.shape.w ? row[iw] : 0.0f;
                }
            }
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
            const float* row = sourceRow(input + ic * inPlane, outRow, kh);
            for (int kw = 0; kw < weights_.kernelW; ++kw, ++w) {
                const int iw = outColumn * stride_.w - padding_.left + kw * dilation_.w;
                if (row && iw >= 0 && iw < input_.shape.w) sum = std::fma(row[iw], *w, sum);
            }
        }
    return sum;
}
