// The layouts that a node reads and writes, known before its copies are inserted.
//   FastLayout in = inputLayoutOf(graph, node);  FastLayout out = outputLayoutOf(graph, node, in);
// They depend on the kind of the node, on shapes, and on the layouts of its sources, which are chosen before it. All
// inputs have one layout, the operands of its steps that of the output.
#pragma once

#include "fast/FastGraph.h"

FastLayout inputLayoutOf(const FastGraph& graph, const FastNode& node);

// inputs: the layout of the inputs.
FastLayout outputLayoutOf(const FastGraph& graph, const FastNode& node, FastLayout inputs);
