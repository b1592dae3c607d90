// What a network costs, and whether that is too much for a caller.
#pragma once

#include <nolk_model.h>

#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"

// outputs are the places of the network's outputs; -1 for one that is not made.
nolk::ModelCost costOf(const std::vector<LoggedOperation>& operations, const std::vector<int>& outputs);

// "needs 4,096 bytes (4.0 KiB) of memory, the limit is ...": which limits the network would exceed; empty when none.
std::string refusal(const nolk::ModelCost& cost, const nolk::ModelLimits& limits);
