// From the factories that a builder has recorded, checked and fused to the graph of the fast back end. Each operation
// becomes a node of its own kind if its shapes are regular, else a FastBuiltIn, which has the built-in layer's answer
// to every shape. Convolutions, full connections and LSTMs never become FastBuiltIn, because the sums of their built-in
// layers depend on the processor.
#pragma once

#include <memory>
#include <vector>

#include "builder/LayerFactory.h"
#include "builder/TensorX.h"
#include "fast/FastGraph.h"

// Borrows the weights and constants of the factories and tensors.
FastGraph readFastGraph(const std::vector<std::unique_ptr<LayerFactory>>& factories,
                        const std::vector<std::unique_ptr<nolk::TensorX>>& inputs,
                        const std::vector<nolk::TensorX*>& outputs);
