// One LSTM layer, forward, backward or both.
//   in [n, 1, T, I] plain, out [n, 1, T, directions * H] plain
// The gates of a step are chains of fused multiply-adds: bias, then inputs, then the hidden state. The part of the
// inputs is computed for many steps at once.
#pragma once

#include "fast/layers/FastProductParts.h"

class FastLstmLayer final : public FastLayer {
public:
    // scratch: offset in the arena of scratchFloats(weights, output).
    FastLstmLayer(const nolk::LstmWeights& weights, const FastView& input, const FastView& output,
                  std::ptrdiff_t scratch);

    static std::int64_t scratchFloats(const nolk::LstmWeights& weights, const nolk::TensorShape& output);

    void run(const FastRun& run) const override;

private:
    struct Pass {
        FastProductParts input, recurrent;
        bool backward;
    };

    void runChunk(const FastRun& run, int first, int count) const;
    void multiplyInputs(const FastRun& run, const float* x, int steps, const Pass& pass, float* gates, int begin,
                        int end) const;
    void step(const FastRun& run, const Pass& pass, float* gates, float* cell, const float* before,
              float* hidden) const;

    FastView input_, output_;
    int inputs_, hidden_, steps_, gateFloats_;
    int chunk_;  // steps whose inputs are multiplied at once
    std::vector<Pass> passes_;
    std::ptrdiff_t scratch_;
};
