// An optional interface of runners that describe and time their layers, for programs that show or measure a network.
//   if (auto* layered = dynamic_cast<nolk::LayeredRunner*>(runner)) layered->layer(0).kind
// The built-in runner has it. A runner of another implementation offers it by deriving from both classes; it must then
// be compiled with run-time type information, like every class that implements nolk::Runner.
#ifndef NOLK_LAYERS_H
#define NOLK_LAYERS_H

#include <nolk.h>

#include <cstring>

namespace nolk {

struct LayerDescription {
    const char* kind = "";  // for example "conv"; valid as long as the runner
    TensorShape output;
    // The number of the builder's call that recorded it, counted from 0 over all calls that make a tensor, including
    // inputs and constants. A layer that has absorbed others by fusion has the number of its own call.
    std::int32_t call = -1;
};

class LayeredRunner {
public:
    virtual std::int32_t layerCount() const = 0;

    // index counts from 0, in the order in which the layers run.
    virtual LayerDescription layer(std::int32_t index) const = 0;

    // Does the same as Runner::run, and records times in nanoseconds of std::chrono::steady_clock. times must have room
    // for layerCount() + 2 elements: when the run began, when the first layer began, and when each layer ended.
    virtual bool runTimed(Tensor* inputs, int inputCount, Tensor* outputs, int outputCount, std::int64_t* times) = 0;

protected:
    ~LayeredRunner() = default;
};

// Null for a runner without this interface. If a runner was compiled without run-time type information, the pointer to
// it, which stands before the virtual functions, is null, and dynamic_cast would follow it.
inline LayeredRunner* layeredRunnerOf(Runner* runner) {
    if (!runner) return nullptr;
    const void* const* slots = nullptr;
    std::memcpy(&slots, static_cast<const void*>(runner), sizeof slots);
    return slots[-1] ? dynamic_cast<LayeredRunner*>(runner) : nullptr;
}

}  // namespace nolk

#endif
