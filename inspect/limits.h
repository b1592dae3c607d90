// Computes the cost of a network, and compares it with a caller's limits.
#pragma once

#include <nolk_model.h>

#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"

// outputs are the indices of the operations that make the network's outputs; -1 for one that is not made.
nolk::ModelCost costOf(const std::vector<LoggedOperation>& operations, const std::vector<int>& outputs);

// cost, of these operations, with the steps of building alone: those that fold batch normalisations.
nolk::ModelCost buildingCostOf(nolk::ModelCost cost, const std::vector<LoggedOperation>& operations);

// Says which limits the network would exceed, "it needs 4,096 bytes (4.0 KiB) of memory ..."; empty when none. purpose
// says in the text what the steps are needed for.
std::string refusal(const nolk::ModelCost& cost, const nolk::ModelLimits& limits, const char* purpose = "for a run");
