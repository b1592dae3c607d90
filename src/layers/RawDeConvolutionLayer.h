// Transposed convolution: out[o, ih * stride.h - top + kh, iw * stride.w - left + kw] += in[i, ih, iw] * w[i, o, kh,
// kw] wherever that is inside the output, from 0, then the bias.
//   in [n, i, ih, iw]; w [i, o, kh, kw], of which the input may have fewer i; out [n, o, oh, ow]
// Rows of the input count while ih * stride.h <= oh + top + bottom - kernelH, columns likewise. An output element
// receives its products, fused, in the order of i, ih, iw; the layer goes through the outputs and gathers them.
#pragma once

#include <cstddef>
#include <vector>

#include "layers/Layer.h"
#include "memory/FloatArrays.h"

class RawDeConvolutionLayer final : public Layer {
public:
    // Offsets of a source in the input's sample and of its weight in one output channel's.
    struct Product {
        std::ptrdiff_t source;
        std::ptrdiff_t weight;
    };

    RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding, nolk::DimsHW stride,
                          const nolk::Weights& weights, FloatArrays* given = nullptr);

    // Whether there is anything to multiply; without, weights are not looked at.
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
    int columnStep_;  // distance of output columns that take the same kernel columns
    int kernelH_;
    int kernelW_;
    FloatBuffer weight_;       // of the input's channels; null where there is nothing to multiply
    std::vector<float> bias_;  // one for every output channel, or none
    Taps rows_;
    Taps columns_;
    std::vector<Product> products_;  // of the element at hand
};
