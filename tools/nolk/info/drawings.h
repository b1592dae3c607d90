// What nolk info draws of a model.
#pragma once

#include <nolk_model.h>

#include <string>

// The network's operations as source for Graphviz: a node for each, dashed where fusion absorbs it, and an edge for
// each tensor. path heads it.
std::string graphSource(const std::string& path, const nolk::ModelInfo& info);

// The SVG that Graphviz's dot draws of it. Throws std::runtime_error when there is no dot, or it fails.
std::string graphSvg(const std::string& source);

// The network's memory as an SVG: time along x, step by step, offsets in the arena along y, a box for each range that
// tensors share, and a band for the scratch memory. Throws std::runtime_error, "path: why", when the network was too
// large to be built, or has no arena.
std::string memoryDrawing(const std::string& path, const nolk::ModelInfo& info);
