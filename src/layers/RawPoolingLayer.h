// Maximum or average of every window of every plane, over the part of the window that lies inside the input: an average
// divides by the number of values in that part. Where there are none, the maximum is -1e37 and the average NaN. A
// maximum ignores NaN.
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
        int top, bottom, left, right;  // of the part inside the input; bottom and right behind the last
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
    bool countPad_ = false;  // would divide an average by the whole window
};
