// A long short-term memory network over sequences of T steps, from zero states; H units, I features, D directions.
//   in [n, c, T, I]; out [n, c, T, D * H]; only the first n * T rows of each are used, other outputs stay unchanged
//   a = bias + W x + R h, added up in this order, for the gates i, o, f and g
//   m = sigmoid(a_f) * m + sigmoid(a_i) * tanh(a_g),  h = sigmoid(a_o) * tanh(m)
// With D = 1 time runs backward if `direction` is backward. With D = 2 a forward pass is followed by a backward pass,
// whose outputs come after the forward ones of the same step. Weights are copied into another order.
#pragma once

#include <cstddef>
#include <vector>

#include "layers/Layer.h"
#include "memory/FloatBuffer.h"

class RawLstmLayer final : public Layer {
public:
    RawLstmLayer(nolk::Tensor input, nolk::Tensor output, const nolk::LstmWeights& weights);

    void run(AlignedMemory<float>& scratch) override;
    nolk::Tensor getInputTensor() const override { return input_; }
    nolk::Tensor getOutputTensor() const override { return output_; }

private:
    void packWeights(const nolk::LstmWeights& weights);
    void packBias(const nolk::LstmWeights& weights);
    void lstm(const float* in, float* out, bool backward, const float* weights, const float* bias);
    void step(const float* weights, const float* bias);

    nolk::Tensor input_;
    nolk::Tensor output_;
    nolk::Direction direction_;
    int numDirections_;
    int inputSize_;
    int hiddenSize_;
    std::size_t paddedUnits_;    // 4 * H, in whole registers
    FloatBuffer weights_;        // [D, blocks, I + H, block]: columns of [W R], so that neighbouring units are summed
                                 // up side by side; the last block may be narrower
    std::vector<float> bias_;    // [D, blocks, block]
    std::vector<float> gates_;   // [4, H] of one step, padded
    std::vector<float> state_;   // x and h of one step, in the order of the columns of [W R]
    std::vector<float> memory_;  // m
};
