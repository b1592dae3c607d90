// An implementation in a library of its own that is made of the parts core and raw: the built-in builder with one
// operation replaced. It reads a format of its own too, the number of elements as an int. With the setting "wrapped"
// its runners do not tell their layers.
#include <nolk.h>

#include <cstring>
#include <memory>
#include <string>

#include "builder/RawRunnerBuilder.h"
#include "builder/shapes.h"
#include "layers/ActLayerFactory.h"

namespace {

// y = -x
class NegatingLayer final : public Layer {
public:
    NegatingLayer(nolk::Tensor input, nolk::Tensor output) : in_(input), out_(output) {}

    void run(AlignedMemory<float>&) override {
        for (int i = 0; i < elementCount(in_.shape); ++i) out_.data[i] = -in_.data[i];
    }

private:
    nolk::Tensor in_, out_;
};

class NegatingLayerFactory final : public ActLayerFactory {
public:
    explicit NegatingLayerFactory(nolk::TensorX* x) : ActLayerFactory({x}) { initOutput(x->shape); }

    std::unique_ptr<Layer> create() override {
        return std::make_unique<NegatingLayer>(input()->toTensor(), output()->toTensor());
    }
};

class PluginBuilder final : public RawRunnerBuilder {
public:
    explicit PluginBuilder(const char* cfg) : RawRunnerBuilder(cfg), isWrapped_(std::strstr(cfg, "wrapped")) {}

    nolk::TensorX* abs(nolk::TensorX* x) override {
        if (!areOwn({x})) return nullptr;
        return addLayerReturnOutputs(std::make_unique<NegatingLayerFactory>(x)).front();
    }

    nolk::Runner* build(nolk::TensorX** outputs, int count) override {
        nolk::Runner* const runner = RawRunnerBuilder::build(outputs, count);
        return isWrapped_ ? nolk_wrap_batch_runner(runner, 1) : runner;
    }

private:
    bool isWrapped_;
};

struct Destroy {
    void operator()(nolk::RunnerBuilder* builder) const { builder->destroy(); }
};

}  // namespace

extern "C" {

NOLK_API nolk::RunnerBuilder* nolk_new_runner_builder_impl(const char* cfg) { return new PluginBuilder(cfg); }

NOLK_API nolk::Runner* nolk_new_runner(const char* cfg, void* data, int size, int batch) {
    int count = 0;
    if (size != sizeof count) {
        nolk_push_error_message("not an int");
        return nullptr;
    }
    std::memcpy(&count, data, sizeof count);
    const std::unique_ptr<nolk::RunnerBuilder, Destroy> builder(new PluginBuilder(cfg));
    nolk::TensorX* y = builder->abs(builder->input({batch, count, 1, 1, 1}));
    return builder->build(&y, 1);
}
}
