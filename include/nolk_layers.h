// An optional interface of runners that can tell their layers, for programs that show or time a network.
//   if (auto* layered = dynamic_cast<nolk::LayeredRunner*>(runner)) layered->layer(0).kind
// The built-in runner has it. A runner of another implementation offers it by deriving from both classes; it must then
// be compiled with run-time type information, as must everything behind nolk::Runner.
#ifndef NOLK_LAYERS_H
#define NOLK_LAYERS_H

#include <nolk.h>

#include <cstring>

namespace nolk {

struct LayerDescription {
    const char* kind = "";  // what computes it, "conv"; valid as long as the runner
    TensorShape output;
    // Which call of the builder it was recorded for, counted from 0 over all calls that make a tensor, inputs and
    // constants included. A layer that fusion has merged belongs to the call whose layer has stayed.
    std::int32_t call = -1;
};

class LayeredRunner {
public:
    virtual std::int32_t layerCount() const = 0;

    // index counts from 0, in the order in which the layers run.
    virtual LayerDescription layer(std::int32_t index) const = 0;

    // Does what Runner::run does, under the same conditions, and notes the time: times has layerCount() + 2 elements,
    // in nanoseconds of std::chrono::steady_clock: when the run began, when the first layer began, and when each layer
    // ended.
    virtual bool runTimed(Tensor* inputs, int inputCount, Tensor* outputs, int outputCount, std::int64_t* times) = 0;

protected:
    ~LayeredRunner() = default;
};

// Null for a runner that does not tell its layers. One that was compiled without run-time type information has a null
// pointer in front of its slots, where its class should be named; dynamic_cast would follow it.
inline LayeredRunner* layeredRunnerOf(Runner* runner) {
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(runner), sizeof slots);
    return slots[-1] ? dynamic_cast<LayeredRunner*>(runner) : nullptr;
}

}  // namespace nolk

#endif
