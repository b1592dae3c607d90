// Records a network on the built-in back end with a little noise on every value that an operation reads, at least as
// large as the rounding of that operation. What this changes in the results is how far two correct implementations may
// be apart: rounding that a network amplifies, amplifies the noise too.
//   NoisyBuilder builder(log.operations(), 1, 1.0f);  ...;  nolk::Runner* runner = builder.build(outputs, count);
// The runner also gives every tensor that an operation made, after the outputs. Nothing is fused.
#pragma once

#include <memory>
#include <vector>

#include "builder/RawRunnerBuilder.h"
#include "inspect/CallBuilder.h"
#include "inspect/LoggedOperation.h"

class NoisyBuilder final : public CallBuilder<nolk::RunnerBuilder> {
public:
    // operations: the log of the same calls. Each seed gives other noise, in proportion to strength.
    NoisyBuilder(const std::vector<LoggedOperation>& operations, std::uint32_t seed, float strength);

    nolk::TensorShape shapeOf(nolk::TensorX* x) override { return builder_->shapeOf(x); }
    nolk::Runner* build(nolk::TensorX** outputs, int count) override;
    void destroy() override {}

    // The shapes of the runner's outputs that build adds.
    const std::vector<nolk::TensorShape>& addedShapes() const { return addedShapes_; }

private:
    nolk::TensorX* record(const Call& call) override;
    nolk::TensorX* disturbed(nolk::TensorX* x, float amount);
    float noise();

    struct Destroy {
        void operator()(RawRunnerBuilder* builder) const { builder->destroy(); }
    };

    const std::vector<LoggedOperation>& operations_;
    std::uint32_t random_;
    float strength_;
    std::unique_ptr<RawRunnerBuilder, Destroy> builder_;
    std::size_t recorded_ = 0;
    std::vector<nolk::TensorX*> added_;
    std::vector<nolk::TensorShape> addedShapes_;
};
