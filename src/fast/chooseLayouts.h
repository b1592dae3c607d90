// Decides how each value lies in memory, and inserts copies where a node needs another layout than its source has.
//   - Convolutions, poolings and all that works on planes have blocks of channels; so have element-wise nodes and
//     concatenations of such values. Everything else is plain.
//   - The parts of a concatenation in blocks are written in place where each begins with a block and at most a few
//     would have to be copied there.
//   - A value has the border of zeros that the padding of its consumers needs.
//   - A reshape is another view of the same memory.
// Afterwards every node finds its sources as its layer needs them. All choices depend on the shapes alone.
// Copies of constants in blocks may take 16 times their memory. They are filled, and with that take it, when it is
// known that the network may have it:
//   const auto copies = chooseLayouts(graph);  ... fillConstants(copies);
#pragma once

#include <vector>

#include "fast/FastGraph.h"

struct FastConstantCopy {
    const float* plain;
    nolk::TensorShape shape;
    float* blocks;
};

std::vector<FastConstantCopy> chooseLayouts(FastGraph& graph);
void fillConstants(const std::vector<FastConstantCopy>& copies);
