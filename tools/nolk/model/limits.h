// How large a network may be for programs that only look at it: a damaged file can ask for anything.
#pragma once

#include <string>
#include <vector>

#include "nolk/model/NotedOperation.h"

// Why building would take more than about a gigabyte or a minute; empty when it would not. outputs are the places of
// the network's outputs.
std::string tooLargeToBuild(const std::vector<NotedOperation>& operations, const std::vector<int>& outputs);

// Why a run would, or would end the process; empty when it would not.
std::string unfitToRun(const std::vector<NotedOperation>& operations);
