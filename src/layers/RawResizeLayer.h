// Scales every plane.   in [n, c, hi, wi]; out [n, c, ho, wo]
//   linear   y = b0 * (a0 * x[sy, sx] + a1 * x[sy, sx + 1]) + b1 * (the same of row sy + 1); see linear_coeffs
//   nearest  y = x[(int)(row * (hi / ho)), (int)(column * (wi / wo))], in double precision
// Any other mode prints a line to standard output and ends the process with status 0.
#pragma once

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
    struct Span;
    struct Tile;

    static void linear_coeffs(int in, int out, int begin, int count, int* offsets, float* weights, int transMode);
    template <typename Compute>
    void forEachTile(AlignedMemory<float>& scratch, Compute compute) const;
    void fill(const Span& span, int in, int out) const;
    void linner(AlignedMemory<float>& scratch) const;
    void linearTile(const float* in, float* out, Tile& tile) const;
    void interpolateRow(const float* in, float* row, const Span& columns) const;
    void nearest(AlignedMemory<float>& scratch) const;
    void nearestTile(const float* in, float* out, const Tile& tile) const;

    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::ResizeMode mode_;
    nolk::ResizeTransMode transMode_;
};
