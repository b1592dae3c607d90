#include "layers/RawLstmLayer.h"

#include <algorithm>
#include <cmath>

#include "builder/shapes.h"
#include "math/lanes.h"

namespace {

// Registers that hold the sums of a block of units during the loop over the inputs.
constexpr int kVectors = 8;
constexpr std::size_t kBlock = kVectors * kLanes;

// sums[u] = bias[u] + sum over r of weights[r][u] * state[r] for a block of units that is `count` registers wide. Each
// product is rounded and added one after the other.
template <int count>
void sumUp(const float* weights, const float* bias, const float* state, std::size_t rows, float* sums) {
    Lanes acc[count];
    for (int v = 0; v < count; ++v) acc[v] = loadLanes(bias + v * kLanes);
    for (std::size_t r = 0; r < rows; ++r, weights += count * kLanes)
        for (int v = 0; v < count; ++v) acc[v] += loadLanes(weights + v * kLanes) * state[r];
    for (int v = 0; v < count; ++v) storeLanes(sums + v * kLanes, acc[v]);
}

// For each number of registers from 1 on.
constexpr decltype(&sumUp<1>) kSumUp[] = {sumUp<1>, sumUp<2>, sumUp<3>, sumUp<4>,
                                          sumUp<5>, sumUp<6>, sumUp<7>, sumUp<kVectors>};

// Stores value in memory that is still zero. Zeros are not stored, so that weights which a file announces but does not
// contain take no memory.
void storeNonZero(float value, float* place) {
    if (value != 0.0f || std::signbit(value)) *place = value;
}

float sigmoid(float v) { return 1.0f / (std::exp(-v) + 1.0f); }

}  // namespace

RawLstmLayer::RawLstmLayer(nolk::Tensor input, nolk::Tensor output, const nolk::LstmWeights& weights)
    : input_(input),
      output_(output),
      direction_(weights.direction),
      numDirections_(weights.numDirections),
      inputSize_(std::max(weights.inputSize, 0)),
      hiddenSize_(weights.hiddenSize),
      paddedUnits_((static_cast<std::size_t>(weights.hiddenSize) * 4 + kLanes - 1) / kLanes * kLanes) {
    desc = "LSTM";
    if (elementCount(output.shape) == 0) return;
    packWeights(weights);
    packBias(weights);
    gates_.resize(paddedUnits_);
    state_.resize(static_cast<std::size_t>(inputSize_) + static_cast<std::size_t>(hiddenSize_));
    memory_.resize(static_cast<std::size_t>(hiddenSize_));
}

void RawLstmLayer::packWeights(const nolk::LstmWeights& weights) {
    const auto i = static_cast<std::size_t>(inputSize_), h = static_cast<std::size_t>(hiddenSize_);
    const std::size_t rows = i + h, units = 4 * h;
    weights_ = zeroedFloats(static_cast<std::size_t>(numDirections_) * rows * paddedUnits_);
    const float *input = weights.inputWeights, *recurrent = weights.recurrentWeights;
    float* direction = weights_.get();
    for (int d = 0; d < numDirections_; ++d, direction += rows * paddedUnits_)
        for (std::size_t u = 0; u < units; ++u) {
            const std::size_t block = u / kBlock * kBlock, width = std::min(kBlock, paddedUnits_ - block);
            float* column = direction + block * rows + u % kBlock;
            for (std::size_t r = 0; r < i; ++r, column += width) storeNonZero(*input++, column);
            for (std::size_t r = 0; r < h; ++r, column += width) storeNonZero(*recurrent++, column);
        }
}

void RawLstmLayer::packBias(const nolk::LstmWeights& weights) {
    const std::size_t units = 4 * static_cast<std::size_t>(hiddenSize_);
    bias_.assign(static_cast<std::size_t>(numDirections_) * paddedUnits_, 0.0f);
    if (!weights.bias || !weights.splitBias) return;
    for (std::size_t d = 0; d < static_cast<std::size_t>(numDirections_); ++d)
        for (std::size_t u = 0; u < units; ++u)
            bias_[d * paddedUnits_ + u] = weights.bias[2 * d * units + u] + weights.bias[(2 * d + 1) * units + u];
}

void RawLstmLayer::run(AlignedMemory<float>&) {
    if (elementCount(output_.shape) == 0) return;
    const bool backward = direction_ == nolk::Direction::backward;
    if (numDirections_ == 1) return lstm(input_.data, output_.data, backward, weights_.get(), bias_.data());
    lstm(input_.data, output_.data, false, weights_.get(), bias_.data());
    lstm(input_.data, output_.data + hiddenSize_, true, weights_.get() + state_.size() * paddedUnits_,
         bias_.data() + paddedUnits_);
}

// Computes one direction. out points to its first output; a row of out holds the outputs of all directions.
void RawLstmLayer::lstm(const float* in, float* out, bool backward, const float* weights, const float* bias) {
    const int steps = input_.shape.h;
    const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(numDirections_) * hiddenSize_;
    for (std::ptrdiff_t n = 0; n < input_.shape.n; ++n) {
        std::fill(state_.begin(), state_.end(), 0.0f);
        std::fill(memory_.begin(), memory_.end(), 0.0f);
        for (int s = 0; s < steps; ++s) {
            const std::ptrdiff_t t = n * steps + (backward ? steps - 1 - s : s);
            std::copy_n(in + t * inputSize_, inputSize_, state_.data());
            step(weights, bias);
            std::copy_n(state_.data() + inputSize_, hiddenSize_, out + t * row);
        }
    }
}

void RawLstmLayer::step(const float* weights, const float* bias) {
    for (std::size_t u = 0; u < paddedUnits_; u += kBlock) {
        const std::size_t registers = std::min(kBlock, paddedUnits_ - u) / kLanes;
        kSumUp[registers - 1](weights + u * state_.size(), bias + u, state_.data(), state_.size(), gates_.data() + u);
    }
    const float* i = gates_.data();
    const float* o = i + hiddenSize_;
    const float* f = o + hiddenSize_;
    const float* g = f + hiddenSize_;
    float* m = memory_.data();
    float* h = state_.data() + inputSize_;
    for (int j = 0; j < hiddenSize_; ++j) {
        m[j] = sigmoid(f[j]) * m[j] + sigmoid(i[j]) * std::tanh(g[j]);
        h[j] = sigmoid(o[j]) * std::tanh(m[j]);
    }
}
