// Fusion of a whole network.
//   std::vector<std::unique_ptr<LayerFactory>> absorbed = fuseAll(factories);
#pragma once

#include <memory>
#include <vector>

#include "builder/LayerFactory.h"

// Lets the factories, which are in execution order, absorb their neighbours until none can. Moves the absorbed ones to
// the result and keeps the order of the others.
//
// The result is that of a search which starts again with the first factory after each absorption. Starting again is not
// necessary: an absorption removes a neighbour of earlier factories or replaces it by the absorbing factory, which no
// factory can absorb. So a factory that could not absorb anything still cannot. LayerFactory::fuse must keep to this.
std::vector<std::unique_ptr<LayerFactory>> fuseAll(std::vector<std::unique_ptr<LayerFactory>>& factories);
