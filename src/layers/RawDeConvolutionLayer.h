// Transposed convolution: out[o, ih * stride.h - top + kh, iw * stride.w - left + kw] += in[i, ih, iw] * w[i, o, kh,
// kw] wherever that is inside the output. The sum begins with 0; the bias is added last.
//   in [n, i, ih, iw]; w [i, o, kh, kw], the input may have fewer channels i than w; out [n, o, oh, ow]
// Only rows with ih * stride.h <= oh + top + bottom - kernelH are used, oh being the output's height; columns likewise.
// The layer goes through the output elements and adds up the products of each by fused multiply-adds, in the order of
// i, ih, iw.
#pragma once

#include <cstddef>
#include <vector>

#include "layers/Layer.h"
#include "memory/FloatArrays.h"

class RawDeConvolutionLayer final : public Layer {
public:
    // The offset of an input value in its sample, and of its weight from the first weight of the output channel.
    struct Product {
        std::ptrdiff_t source;
        std::ptrdiff_t weight;
    };

    RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding, nolk::DimsHW stride,
                          const nolk::Weights& weights, FloatArrays* given = nullptr);

    // Whether there is anything to multiply. If not, the weights are never read.
    static bool hasProducts(const nolk::TensorShape& in, const nolk::TensorShape& out, const nolk::Weights& weights);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    // Along one dimension: output position p receives source[k] through kernel[k] for k from first[p] to first[p + 1],
    // sources ascending.
    struct Taps {
        std::vector<std::size_t> first;
        std::vector<int> source;
        std::vector<int> kernel;
        std::size_t most() const;  // of one position
    };
    static Taps tapsOf(int in, int out, int kernel, int stride, int before, int after);

    void fillWithBias() const;
    float withBias(float sum, int channel) const;
    void runRow(const float* in, float* out, int row);
    bool sameTaps(int column, int count) const;
    template <int kVectors>
    void gather(const float* in, float* out, int row, int column);
    std::size_t listProducts(int row, int column);

    nolk::Tensor input_;
    nolk::Tensor output_;
    int columnStep_;  // distance of output columns that use the same kernel columns
    int kernelH_;
    int kernelW_;
    FloatBuffer weight_;       // of the input's channels; null if there is nothing to multiply
    std::vector<float> bias_;  // one for every output channel, or none
    Taps rows_;
    Taps columns_;
    std::vector<Product> products_;  // of the current output element
};
