// Scales every plane.   in [n, c, hi, wi]; out [n, c, ho, wo]
//   linear   y = b0 * (a0 * x[sy, sx] + a1 * x[sy, sx + 1]) + b1 * (the same of row sy + 1); see linear_coeffs
//   nearest  y = x[(int)(row * (hi / ho)), (int)(column * (wi / wo))], in double precision
// Any other mode prints a line to standard output and ends the process with status 0.
#pragma once

#include <vector>

#include "layers/Layer.h"

class RawResizeLayer final : public Layer {
public:
    RawResizeLayer(nolk::Tensor input, nolk::Tensor output, nolk::ResizeMode mode, nolk::ResizeTransMode transMode);

    // Computes for each of `out` indices the source index, and the weights of the value there and of the next one.
    // transMode 0 is half-pixel, any other align-corners. At the end the source index is in - 2 with the weights
    // (0, 1), so that a next value exists. If there is only one value, the index is -1; its weight is 0, and the caller
    // must not read there.
    static void linear_coeffs(int in, int out, int* offsets, float* weights, int transMode);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void linner(const nolk::Tensor& input, const nolk::Tensor& output);
    void linearPlane(const float* in, float* out);
    void interpolateRow(const float* in, float* row) const;
    void nearest(const nolk::Tensor& input, const nolk::Tensor& output) const;
    void nearestPlane(const float* in, float* out) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::ResizeMode mode_;
    std::vector<int> columns_, rows_;                // source indices, one for every column and row of the output
    std::vector<float> columnWeights_, rowWeights_;  // pairs
    std::vector<float> above_, below_;               // two source rows, interpolated to the output's width
};
