#include "fuzz/NoisyBuilder.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "inspect/counts.h"

namespace {

constexpr std::int64_t kMostFloats = 1 << 20;

// How many values an element of the result is computed from, roughly: sums round once for each.
float lengthOf(const LoggedOperation& logged) {
    const std::int64_t elements = std::max<std::int64_t>(elementsOf(logged.output), 1);
    return static_cast<float>(logged.steps / elements);
}

}  // namespace

NoisyBuilder::NoisyBuilder(const std::vector<LoggedOperation>& operations, std::uint32_t seed, float strength)
    : operations_(operations), random_(seed), strength_(strength), builder_(new RawRunnerBuilder(nullptr)) {}

nolk::Runner* NoisyBuilder::build(nolk::TensorX** outputs, int count) {
    std::vector<nolk::TensorX*> all(outputs, outputs + count);
    all.insert(all.end(), added_.begin(), added_.end());
    return builder_->build(all.data(), static_cast<int>(all.size()));
}

nolk::TensorX* NoisyBuilder::record(const Call& call) {
    constexpr float kRounding = 0x1p-24f;
    const float amount = 4 * kRounding * (lengthOf(operations_[recorded_++]) + 4) * strength_;
    Call noisy = call;
    for (nolk::TensorX*& x : noisy.inputs) x = disturbed(x, amount);
    nolk::TensorX* const made = call.operation.call(*builder_, noisy);
    if (made) {
        added_.push_back(made);
        addedShapes_.push_back(shapeOf(made));
    }
    return made;
}

// x times values near 1. The product also is a tensor that nothing else reads, as views need.
nolk::TensorX* NoisyBuilder::disturbed(nolk::TensorX* x, float amount) {
    if (!x) return nullptr;
    nolk::Tensor factors{shapeOf(x), nullptr};
    const std::int64_t count = elementsOf(factors.shape);
    if (count < 1 || count > kMostFloats) return x;
    std::vector<float> values(static_cast<std::size_t>(count));
    for (float& value : values) value = 1.0f + amount * noise();
    factors.data = values.data();
    return builder_->multiply(x, builder_->constTensor(&factors));
}

// Between -1 and 1, and never close to 0.
float NoisyBuilder::noise() {
    random_ = random_ * 1664525u + 1013904223u;
    const float size = 0.5f + 0.5f * static_cast<float>(random_ >> 9 & 0xffffu) / 65536.0f;
    return random_ >> 31 ? size : -size;
}
