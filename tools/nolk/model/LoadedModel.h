// A model file turned into a runner, with what built it kept beside it, so that programs can look into the network.
//   LoadedModel model("digits.cm", nullptr, 1);  model.runner().run(...);
#pragma once

#include <memory>
#include <string>

#include "builder/RawRunnerBuilder.h"
#include "runner/BaseRunner.h"

// Deletes what has a destroy() of its own.
struct Destroy {
    template <typename Object>
    void operator()(Object* object) const {
        object->destroy();
    }
};

class LoadedModel {
public:
    // cfg: the builder's settings, or null. Throws std::runtime_error with the path and the library's reason, which
    // does not reach standard error by itself, or with the operation that no run can give a meaning.
    LoadedModel(const std::string& path, const char* cfg, int batch);

    BaseRunner& runner() { return *runner_; }
    const RawRunnerBuilder& builder() const { return *builder_; }

    // How long the library took.
    double loadSeconds() const { return loadSeconds_; }

private:
    void load(const std::string& path, int batch);

    std::unique_ptr<RawRunnerBuilder, Destroy> builder_;
    std::unique_ptr<BaseRunner, Destroy> runner_;
    double loadSeconds_ = 0;
};
