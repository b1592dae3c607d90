// Maximum, mean, sum or minimum over the dimensions in which the output's extent is 1; the batch is never reduced.
//   in [n, c, h, w]; out [n, c or 1, h or 1, w or 1]
// If the output differs in c only, whole planes are combined: NaN is treated as by vectorMax, vectorAdd and vectorMin,
// and the mean multiplies by 1 / c. Otherwise values are combined in row-major order, and NaN marks a result that has
// no value yet, so the next value replaces it. A NaN in the input has the same effect: maximum and minimum ignore it,
// and a sum starts again after it, while a mean still divides by the number of all values. An unknown operator writes
// nothing.
#pragma once

#include "layers/Layer.h"

class RawReductionLayer final : public Layer {
public:
    RawReductionLayer(nolk::Tensor input, nolk::Tensor output, nolk::BasicOp op);

    // Whether the output differs from the input in c, but not in h and w.
    static bool reducesChannelsOnly(const nolk::TensorShape& in, const nolk::TensorShape& out);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void reduceChannel(void (*combine)(int n, float* dst, const float* src)) const;
    template <typename Accumulate>
    void reduce(Accumulate accumulate) const;
    void divideByCount() const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::BasicOp op_;
};
