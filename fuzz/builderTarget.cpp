// Calls of a builder that nolk.h allows, on small networks: record, build, run twice, release.
#include <nolk.h>

#include <cstddef>
#include <cstdint>
#include <new>
#include <stdexcept>
#include <vector>

#include "fuzz/HostRun.h"
#include "fuzz/Network.h"
#include "fuzz/Outline.h"
#include "fuzz/target.h"
#include "inspect/OperationLog.h"

namespace {

// The same choices make the same network on a builder that computes its costs only.
Outline outlineOfNetwork(const std::uint8_t* data, std::size_t size, int batch) {
    Choices choose(data, size);
    Network network(choose, batch);
    OperationLog log;
    const std::vector<nolk::TensorX*> outputs = network.record(log);
    return outlineOf(log, outputs);
}

void buildAndRun(nolk::RunnerBuilder& builder, Network& network, const Outline& outline, bool passesWrongTensors) {
    std::vector<nolk::TensorX*> outputs = network.record(builder);
    nolk::Runner* runner = nullptr;
    try {
        runner = builder.build(outputs.data(), static_cast<int>(outputs.size()));
    } catch (const std::invalid_argument&) {
        return;
    }
    expect(runTwice(*runner, outline.inputs, outline.outputs), "a network that is built runs");
    if (passesWrongTensors)
        expect(HostRun(outline.inputs, outline.outputs).isHeldToShapes(*runner), "wrong tensors are rejected");
    runner->destroy();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const int batch = 1 + data[0] % 3;
    const char* const settings = data[0] & 128 ? "NolkRaw:num_threads=2,gemm_thresh=50" : nullptr;
    const Outline outline = outlineOfNetwork(data + 1, size - 1, batch);
    if (!outline.isHarmless) return 0;
    nolk::RunnerBuilder* const builder = nolk_new_runner_builder(settings);
    try {
        Choices choose(data + 1, size - 1);
        Network network(choose, batch);
        buildAndRun(*builder, network, outline, (data[0] & 64) != 0);
    } catch (const std::bad_alloc&) {
        // A tensor that no memory can hold.
    }
    builder->destroy();
    dropMessages();
    return 0;
}
