#include "fast/layers/FastLstmLayer.h"

#include <algorithm>
#include <limits>
#include <numeric>

namespace {

constexpr int kBlocksOfTask = 8;

int gateFloatsOf(int hidden) { return blocksOf(4 * hidden) * kFastBlock; }

// Rows [4 * hidden, inputs] of weights.
FastProductParts packed(const float* weights, const float* bias, int hidden, int inputs) {
    nolk::Weights w;
    w.groups = 1;
    w.outChannels = 4 * hidden;
    w.inChannels = inputs;
    w.kernelH = w.kernelW = 1;
    w.weight = const_cast<float*>(weights);
    w.bias = const_cast<float*>(bias);
    std::vector<std::int32_t> taps(static_cast<std::size_t>(inputs));
    std::iota(taps.begin(), taps.end(), 0);
    return FastProductParts::pack(w, {taps});
}

constexpr std::int64_t kGateFloats = 1 << 20;  // of a chunk of steps

int chunkOf(int hidden, int steps) {
    return static_cast<int>(std::clamp<std::int64_t>(kGateFloats / gateFloatsOf(hidden), 1, steps));
}

// Floats of one pass over one sample: the gates of a chunk, the cell, and the hidden state before the first step.
std::int64_t passFloats(int hidden, int steps) {
    return std::int64_t{chunkOf(hidden, steps)} * gateFloatsOf(hidden) +
           2 * std::int64_t{blocksOf(hidden)} * kFastBlock;
}

}  // namespace

FastLstmLayer::FastLstmLayer(const nolk::LstmWeights& w, const FastView& input, const FastView& output,
                             std::ptrdiff_t scratch)
    : input_(input),
      output_(output),
      inputs_(std::max(w.inputSize, 0)),
      hidden_(w.hiddenSize),
      steps_(input.shape.h),
      gateFloats_(gateFloatsOf(w.hiddenSize)),
      chunk_(chunkOf(w.hiddenSize, input.shape.h)),
      scratch_(scratch) {
    const std::size_t units = 4 * static_cast<std::size_t>(hidden_);
    for (std::size_t d = 0; d < static_cast<std::size_t>(w.numDirections); ++d) {
        std::vector<float> bias(units, 0.0f);
        if (w.bias && w.splitBias)
            for (std::size_t u = 0; u < units; ++u)
                bias[u] = w.bias[2 * d * units + u] + w.bias[(2 * d + 1) * units + u];
        const float* const input_weights = w.inputWeights + d * units * static_cast<std::size_t>(inputs_);
        const float* const recurrent = w.recurrentWeights + d * units * static_cast<std::size_t>(hidden_);
        const bool backward = w.numDirections == 1 ? w.direction == nolk::Direction::backward : d == 1;
        passes_.push_back({packed(input_weights, bias.data(), hidden_, inputs_),
                           packed(recurrent, nullptr, hidden_, hidden_), backward});
    }
}

std::int64_t FastLstmLayer::scratchFloats(const nolk::LstmWeights& weights, const nolk::TensorShape& output) {
    return passFloats(weights.hiddenSize, output.h) * output.n * weights.numDirections;
}

void FastLstmLayer::run(const FastRun& run) const {
    const int n = output_.shape.n, passes = static_cast<int>(passes_.size());
    const std::ptrdiff_t floats = passFloats(hidden_, steps_), row = std::ptrdiff_t{passes} * hidden_;
    float* const scratch = run.arena.floats.data() + scratch_;
    for (int chain = 0; chain < n * passes; ++chain)
        std::fill_n(scratch + chain * floats + std::ptrdiff_t{chunk_} * gateFloats_, 2 * blocksOf(hidden_) * kFastBlock,
                    0.0f);
    for (int first = 0, count = 0; first < steps_; first += count) {
        count = std::min(chunk_, steps_ - first);
        runChunk(run, first, count);
    }
    // Of more than one channel, only as many rows are computed as the first has.
    const std::ptrdiff_t computed = std::ptrdiff_t{n} * steps_ * row;
    std::fill_n(output_.base(run) + computed, computed * (output_.shape.c - 1), 0.0f);
}

// Steps [first, first + count), counted from the step that a pass begins with.
void FastLstmLayer::runChunk(const FastRun& run, int first, int count) const {
    const int n = output_.shape.n, passes = static_cast<int>(passes_.size());
    const std::ptrdiff_t floats = passFloats(hidden_, steps_), row = std::ptrdiff_t{passes} * hidden_;
    float* const scratch = run.arena.floats.data() + scratch_;
    const int blocks = gateFloats_ / kFastBlock, ranges = divideUp(blocks, kBlocksOfTask);
    const std::int64_t units = std::int64_t{count} * gateFloats_;
    const auto passOf = [&](int chain) -> const Pass& { return passes_[static_cast<std::size_t>(chain % passes)]; };
    // The earliest of these steps in time.
    const auto earliest = [&](const Pass& pass) { return pass.backward ? steps_ - first - count : first; };
    run.team.forEach(n * passes * ranges, units * inputs_ / (4 * ranges), [&](int task) {
        const int chain = task / ranges, begin = task % ranges * kBlocksOfTask;
        const Pass& pass = passOf(chain);
        const float* const x = input_.base(run) + (std::ptrdiff_t{chain / passes} * steps_ + earliest(pass)) * inputs_;
        multiplyInputs(run, x, count, pass, scratch + chain * floats, begin, std::min(begin + kBlocksOfTask, blocks));
    });
    run.team.forEach(n * passes, units * hidden_ / 4, [&](int chain) {
        const Pass& pass = passOf(chain);
        float* const gates = scratch + chain * floats;
        float* const cell = gates + std::ptrdiff_t{chunk_} * gateFloats_;
        const float* const zeros = cell + blocksOf(hidden_) * kFastBlock;
        float* const out = output_.base(run) + std::ptrdiff_t{chain / passes} * steps_ * row + chain % passes * hidden_;
        for (int s = 0; s < count; ++s) {
            const int t = pass.backward ? steps_ - 1 - first - s : first + s;
            const float* const before = first + s == 0 ? zeros : out + (pass.backward ? t + 1 : t - 1) * row;
            step(run, pass, gates + std::ptrdiff_t{t - earliest(pass)} * gateFloats_, cell, before, out + t * row);
        }
    });
}

void FastLstmLayer::multiplyInputs(const FastRun& run, const float* x, int steps, const Pass& pass, float* gates,
                                   int begin, int end) const {
    FastProduct call;
    pass.input.set(call, pass.input.parts.front(), begin, end);
    call.x = x;
    call.xStep = inputs_;
    call.y = gates + begin * kFastBlock;
    call.yBlock = kFastBlock;
    call.yStep = gateFloats_;
    call.rows = 1;
    call.pixels = steps;
    call.low = -std::numeric_limits<float>::infinity();
    call.high = std::numeric_limits<float>::infinity();
    run.kernels.product(call);
}

void FastLstmLayer::step(const FastRun& run, const Pass& pass, float* gates, float* cell, const float* before,
                         float* hidden) const {
    FastProduct call;
    pass.recurrent.set(call, pass.recurrent.parts.front(), 0, gateFloats_ / kFastBlock);
    call.bias = nullptr;
    call.carryOn = true;
    call.x = before;
    call.xStep = 16;
    call.y = gates;
    call.yBlock = kFastBlock;
    call.rows = call.pixels = 1;
    call.low = -std::numeric_limits<float>::infinity();
    call.high = std::numeric_limits<float>::infinity();
    run.kernels.product(call);
    run.kernels.lstmCell({gates, hidden_, cell, hidden, hidden_});
}
