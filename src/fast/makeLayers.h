// From the nodes of a graph to layers that run, in the order of execution. This is the last step of building, after all
// passes:
//   FastPlan plan = planMemory(graph, scratchFloatsOf(graph, threads));
//   std::vector<std::unique_ptr<FastLayer>> layers = makeLayers(graph, plan, threads, given);
// The layers refer to the arena by offsets and keep packed copies of their weights. Of graph and plan only the
// constants of keepConstants are needed later. Weights are borrowed from the builder, but for the arrays in `given`.
#pragma once

#include <memory>
#include <vector>

#include "fast/FastGraph.h"
#include "fast/FastLayer.h"
#include "fast/planMemory.h"
#include "memory/FloatArrays.h"

// What each node's layer needs while it runs.
std::vector<std::int64_t> scratchFloatsOf(const FastGraph& graph, int numThreads);

// Floats that the layers keep: packed weights, constants of channels, and scratch memory of the built-in layers, which
// each of the arenas has.
double keptFloats(const FastGraph& graph, int arenas);

// One layer for each node. Packs the weights; arrays in `given` are freed as soon as they are packed.
std::vector<std::unique_ptr<FastLayer>> makeLayers(const FastGraph& graph, const FastPlan& plan, int numThreads,
                                                   FloatArrays& given);
