// Finds out what reads the builder's constants, after all passes that replace some of them by copies.
//   - Constants that layers, or the network's outputs, read while the network runs become the graph's.
//   - The second input of a matMul, if constant, becomes weights of the node, which its layer packs.
//   - What a single matMul packs, and nothing else reads, is handed to `given`, and freed as soon as it is packed.
//   - What several pack stays in `constants`, which the caller frees after the layers are made.
//   - What nothing reads is added to `unread`: copies in blocks may still have to be filled from it.
#pragma once

#include <vector>

#include "fast/FastGraph.h"
#include "memory/FloatArrays.h"

// constants: the arrays of the builder. Returns the number of floats that the runner keeps.
double keepConstants(FastGraph& graph, std::vector<FloatBuffer>& constants, FloatArrays& given,
                     std::vector<FloatBuffer>& unread);
