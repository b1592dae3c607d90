#include "fast/FastRunnerBuilder.h"

#include <stdexcept>
#include <string>

#include "fast/FastRunner.h"
#include "fast/chooseLayouts.h"
#include "fast/fuseSteps.h"
#include "fast/keepConstants.h"
#include "fast/makeLayers.h"
#include "fast/readFastGraph.h"

nolk::Runner* FastRunnerBuilder::build(nolk::TensorX** outputs, int count) {
    const std::vector<nolk::TensorX*> graphOutputs = prepare(outputs, count);
    for (const auto& factory : factories()) factory->givenArrays = &givenArrays();
    FastGraph graph = readFastGraph(factories(), inputs(), graphOutputs);
    fuseSteps(graph);
    const std::vector<FastConstantCopy> copies = chooseLayouts(graph);
    std::vector<FloatBuffer> unread;
    const double constantFloats = keepConstants(graph, constants(), givenArrays(), unread);
    const FastPlan plan = planMemory(graph, scratchFloatsOf(graph, settings_.numThreads));
    checkMemory(plan.floats, keptFloats(graph, settings_.arenas) + constantFloats);
    fillConstants(copies);
    unread.clear();
    auto runner = std::make_unique<FastRunner>(std::move(graph), plan, settings_, givenArrays());
    givenArrays().clear();
    constants().clear();
    return runner.release();
}

// Doubles, because a file may announce weights whose product is no 64-bit number.
void FastRunnerBuilder::checkMemory(std::int64_t arenaFloats, double keptFloats) const {
    checkArena(arenaFloats);
    const double bytes = (static_cast<double>(arenaFloats) * settings_.arenas + keptFloats) * sizeof(float);
    if (bytes > static_cast<double>(mostBytes_))
        throw std::length_error("build: NolkFast needs " + std::to_string(static_cast<std::int64_t>(bytes)) +
                                " bytes of memory, at most " + std::to_string(mostBytes_) + " are allowed");
}
