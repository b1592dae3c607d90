// Two passes that save tensors in the arena, after the layouts are chosen and the copies inserted:
//   1. An input of the network that is only copied to blocks is copied there from the host's memory.
//   2. A node writes over a source that nothing needs afterwards, where source and result have one layout.
// reuseMemory(graph) is the last step of chooseLayouts; planMemory then places what is left.
#pragma once

#include "fast/FastGraph.h"

void reuseMemory(FastGraph& graph);
