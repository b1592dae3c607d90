// A network's operations as a graph.
#pragma once

#include <string>

#include "nolk/info/ExaminedModel.h"

// Source for Graphviz: a node for each operation, dashed where fusion absorbs it, and an edge for each tensor.
std::string graphSource(const ExaminedModel& model);

// The SVG that Graphviz's dot draws of it. Throws std::runtime_error when there is no dot, or it fails.
std::string graphSvg(const std::string& source);
