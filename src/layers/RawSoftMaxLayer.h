// y = exp(x - m) / sum of exp(x - m) along every line of an axis: 1 = c, 2 = h, 3 = w. m is the line's largest value;
// a NaN is ignored unless it is the first value. The sum begins with 0 and follows the order of the line.
//   in, out  [n, c, h, w]; out may be in
// Another axis prints a line to standard error and writes nothing.
#pragma once

#include "layers/Layer.h"

class RawSoftMaxLayer final : public Layer {
public:
    RawSoftMaxLayer(nolk::Tensor input, nolk::Tensor output, int axis);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

    void softmaxC() const;
    void softmaxH() const;
    void softmaxW() const;

private:
    nolk::Tensor input_;
    nolk::Tensor output_;
    int axis_;
};
