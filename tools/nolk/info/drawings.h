// The drawings of nolk info.
#pragma once

#include <nolk_model.h>

#include <string>

// The graph of the network's operations as source for Graphviz: a node for each, dashed if fusion absorbs it, and an
// edge for each tensor. path is the title.
std::string graphSource(const std::string& path, const nolk::ModelInfo& info);

// The same graph as an SVG by Graphviz's dot. Throws std::runtime_error if dot is not installed or fails.
std::string graphSvg(const std::string& source);

// The network's memory as an SVG: time along x, step by step, offsets in the arena along y, a box for each range that
// tensors share, and a band for the scratch memory. Throws std::runtime_error, "path: why", when the network was too
// large to be built, or has no arena.
std::string memoryDrawing(const std::string& path, const nolk::ModelInfo& info);
