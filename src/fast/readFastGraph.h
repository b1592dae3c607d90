// From the factories that a builder has recorded, checked and fused to the graph of the fast back end: makes the node
// of each factory (nodes/makeNode.h), in the same order, and connects them.
//   FastGraph graph = readFastGraph(factories(), inputs(), outputs);
// Borrows the weights and constants of the factories and tensors.
#pragma once

#include <memory>
#include <vector>

#include "builder/LayerFactory.h"
#include "builder/TensorX.h"
#include "fast/FastGraph.h"

FastGraph readFastGraph(const std::vector<std::unique_ptr<LayerFactory>>& factories,
                        const std::vector<std::unique_ptr<nolk::TensorX>>& inputs,
                        const std::vector<nolk::TensorX*>& outputs);
