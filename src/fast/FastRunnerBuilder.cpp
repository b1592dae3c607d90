#include "fast/FastRunnerBuilder.h"

#include "fast/FastRunner.h"
#include "fast/chooseLayouts.h"
#include "fast/fuseSteps.h"
#include "fast/readFastGraph.h"

nolk::Runner* FastRunnerBuilder::build(nolk::TensorX** outputs, int count) {
    const std::vector<nolk::TensorX*> graphOutputs = prepare(outputs, count);
    FastGraph graph = readFastGraph(factories(), inputs(), graphOutputs);
    fuseSteps(graph);
    chooseLayouts(graph);
    return new FastRunner(std::move(graph), settings_, givenArrays());
}
