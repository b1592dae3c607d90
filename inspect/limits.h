// Computes the cost of a network, and compares it with a caller's limits.
#pragma once

#include <nolk_model.h>

#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"

// outputs are the indices of the operations that make the network's outputs; -1 for one that is not made.
nolk::ModelCost costOf(const std::vector<LoggedOperation>& operations, const std::vector<int>& outputs);

// Says which limits the network would exceed, "it needs 4,096 bytes (4.0 KiB) of memory ..."; empty when none.
std::string refusal(const nolk::ModelCost& cost, const nolk::ModelLimits& limits);
