// A graph as the operations of a nolk file.
//   Lowered lowered = lowerGraph(graph, graph.outputs);
//   if (lowered.findings.empty()) bytes = lowered.program.write(lowered.outputs, options);
// All that cannot be converted is found in one pass: behind a node that is refused the pass goes on with a tensor of
// the right extents in its place.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "convert/graph/Graph.h"
#include "convert/lower/Placed.h"

namespace convert {

// A node that cannot be converted.
struct Finding {
    std::string node;  // its name, or the tensor that it makes
    std::string type;
    std::string why;
    std::string advice;
};

struct Lowered {
    Program program;
    std::vector<int> outputs;       // steps, for the tensors that were wanted
    std::vector<int> unusedInputs;  // of the graph: no output depends on their values
    std::vector<int> ends;          // steps in front of nodes that cannot be converted
    std::vector<Finding> findings;
    int unseenNodes = 0;  // behind findings, with inputs whose shapes nobody knows
};

Lowered lowerGraph(const Graph& graph, const std::vector<int>& wanted);

}  // namespace convert
