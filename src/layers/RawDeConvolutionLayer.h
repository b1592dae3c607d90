// Transposed convolution: out[o, ih * stride.h - top + kh, iw * stride.w - left + kw] += in[i, ih, iw] * w[i, o, kh,
// kw] wherever that is inside the output. The sum begins with 0; the bias is added last.
//   in [n, i, ih, iw]; w [i, o, kh, kw], the input may have fewer channels i than w; out [n, o, oh, ow]
// Only rows with ih * stride.h <= oh + top + bottom - kernelH are used, oh being the output's height; columns likewise.
// The layer goes through the output elements and adds up the products of each by fused multiply-adds, in the order of
// i, ih, iw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
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

    // What layers of the same operation share.
    struct Arrays {
        int kernelH, kernelW;
        FloatBuffer weight;       // of the input's channels; null if there is nothing to multiply
        std::vector<float> bias;  // one for every output channel, or none
    };
    // Takes the weights from `given` if it has them, else copies them. given may be null.
    static std::shared_ptr<const Arrays> arraysOf(const nolk::TensorShape& in, const nolk::TensorShape& out,
                                                  const nolk::Weights& weights, FloatArrays* given);

    RawDeConvolutionLayer(nolk::Tensor input, nolk::Tensor output, nolk::Padding padding, nolk::DimsHW stride,
                          std::shared_ptr<const Arrays> arrays);

    // Whether there is anything to multiply. If not, the weights are never read.
    static bool hasProducts(const nolk::TensorShape& in, const nolk::TensorShape& out, const nolk::Weights& weights);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    // One dimension of the operation.
    struct Axis {
        int in, out, kernel, stride, before;
        std::int64_t bound;  // sources with source * stride above it are not used
    };

    // The sources that an output position receives: `count` of them from `source` on, the first through `kernel`, each
    // next one through a kernel index that is smaller by the stride.
    struct Taps {
        std::int64_t source, kernel, count;
    };

    static Axis axisOf(int in, int out, int kernel, int stride, int before, int after);
    static Taps tapsAt(const Axis& axis, std::int64_t position);

    void fillWithBias() const;
    float withBias(float sum, int channel) const;
    void runRow(const float* in, float* out, int row) const;
    bool sameTaps(std::int64_t column, int count) const;
    template <int kVectors>
    void gather(const float* in, float* out, int row, int column) const;
    struct Part;
    template <int kVectors>
    void addUp(const float* in, float* out, const Part& part) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    int columnStep_;  // distance of output columns that use the same kernel columns
    Axis rows_;
    Axis columns_;
    std::shared_ptr<const Arrays> arrays_;
};
