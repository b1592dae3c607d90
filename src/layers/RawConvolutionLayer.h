// A grouped convolution with stride, dilation and zero padding:
//   y[b, o, oh, ow] = bias[o] + sum over i, kh, kw of
//                     x[b, i, oh * stride.h - top + kh * dilation.h, ow * stride.w - left + kw * dilation.w] *
//                     weight[o, i, kh, kw]
//   in [n, groups * inChannels, h, w], weights [group, out, in, kh, kw], out [n, groups * outChannels, oh, ow]
// Each group of each sample is a matrix product of weights and windows. For a 1x1 kernel with stride 1 and no padding,
// the input itself is the matrix of windows. Otherwise im2col copies the windows, one after the other, to the runner's
// scratch memory; each group overwrites the windows of the group before.
#pragma once

#include <vector>

#include "layers/Layer.h"
#include "memory/FloatArrays.h"

class RawConvolutionLayer final : public Layer {
public:
    RawConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding, nolk::DimsHW stride,
                        nolk::DimsHW dilation, const nolk::Weights& weights, int numThreads, int gemmThresh,
                        FloatArrays* given = nullptr);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

    // Copies the window of every output position: columns [oh * ow][in, kh, kw] from the channels [in, h, w] of one
    // group of one sample.
    void im2col(float* columns, const float* input) const;

    // Computes the result by its definition, one fused multiply-add after the other. run gives the same up to rounding.
    void algo() const;

    // Whether the input itself is the matrix of windows. Dilation does not matter for a kernel with a single value.
    static bool isPointwise(const nolk::Weights& weights, const nolk::Padding& padding, const nolk::DimsHW& stride);

private:
    // Output columns begin to end - 1.
    struct Range {
        int begin, end;
    };

    // The position of one of a window's values, relative to the first.
    struct Tap {
        std::ptrdiff_t offset;  // channel and column
        int row;
    };

    void multiply(const float* weights, const float* input, float* output, AlignedMemory<float>& scratch) const;
    void addBias(float* output, int group) const;
    int tapCount() const { return weights_.inChannels * weights_.kernelH * weights_.kernelW; }
    Range insideColumns() const;
    template <int kStride>
    void copyTiles(float* columns, const float* input, int outRow, Range outColumns) const;
    void copyWindows(float* columns, const float* input, int outRow, Range outColumns) const;
    void copyRow(float* dst, const float* row, int firstColumn) const;
    const float* tapRow(const float* input, int outRow, const Tap& tap) const;
    const float* sourceRow(const float* channel, int row) const;
    float windowSum(const float* input, std::ptrdiff_t weightRow, int outRow, int outColumn) const;

    nolk::Padding padding_;
    nolk::DimsHW stride_;
    nolk::DimsHW dilation_;
    nolk::Weights weights_;  // its arrays are the two below
    FloatBuffer weight_;
    FloatBuffer bias_;
    std::vector<Tap> taps_;  // of one window, in the order of the weights; none if copyTiles has no columns
    nolk::Tensor input_;
    nolk::Tensor output_;
    int numThreads_;
    int gemmThresh_;
};
