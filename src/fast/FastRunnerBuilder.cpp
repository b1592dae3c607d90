#include "fast/FastRunnerBuilder.h"

#include "fast/FastRunner.h"
#include "fast/chooseLayouts.h"
#include "fast/fuseSteps.h"
#include "fast/makeLayers.h"
#include "fast/readFastGraph.h"

nolk::Runner* FastRunnerBuilder::build(nolk::TensorX** outputs, int count) {
    const std::vector<nolk::TensorX*> graphOutputs = prepare(outputs, count);
    FastGraph graph = readFastGraph(factories(), inputs(), graphOutputs);
    fuseSteps(graph);
    chooseLayouts(graph);
    graph.keepConstants();
    const FastPlan plan = planMemory(graph, scratchFloatsOf(graph, settings_.numThreads));
    checkArena(plan.floats);
    auto runner = std::make_unique<FastRunner>(std::move(graph), plan, settings_, givenArrays());
    givenArrays().clear();
    return runner.release();
}
