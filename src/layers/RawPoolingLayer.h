// Maximum or average of every window of every plane. Only the part of the window inside the input counts: an average
// divides by the number of values in that part. If it has none, the maximum is -1e37 and the average is NaN. A maximum
// ignores NaN.
//   in [n, c, h, w], out [n, c, oh, ow]; not in place
#pragma once

#include "layers/Layer.h"

class RawPoolingLayer final : public Layer {
public:
    // Every type but POOL_AVG is a maximum.
    RawPoolingLayer(nolk::Tensor input, nolk::Tensor output, PoolingType type, nolk::DimsHW kernel,
                    nolk::Padding padding, nolk::DimsHW stride);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    struct Window {
        int top, bottom, left, right;  // of the part inside the input; bottom and right are exclusive
    };

    Window window(int outRow, int outColumn) const;
    float maximum(const float* plane, const Window& part) const;
    float average(const float* plane, const Window& part) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    PoolingType type_;
    nolk::DimsHW kernel_;
    nolk::Padding padding_;
    nolk::DimsHW stride_;
    bool countPad_ = false;  // if true, an average divides by the size of the whole window
};
