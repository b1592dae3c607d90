// How the planner has laid out a network's tensors: which bytes of the arena hold what, and when.
//   for (const ArenaBox& box : arenaBoxes(model)) ...
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nolk/info/ExaminedModel.h"

// One range of the arena. Steps count from 0, the inputs' arrival; step i is layer i - 1, and the last one is when the
// outputs are taken.
struct ArenaBox {
    std::int64_t offset = 0, size = 0;  // bytes
    int firstStep = 0, lastStep = 0;    // both included
    std::vector<std::string> tensors;   // "relu #3", in the order in which they use the range
    std::string shapes;                 // "[1, 8, 28, 28]", of each that differs from the one before
};

// In the order of their first steps. The model must have a runner.
std::vector<ArenaBox> arenaBoxes(const ExaminedModel& model);

// What the steps are called: "inputs", "conv #2", ..., "outputs".
std::vector<std::string> arenaSteps(const ExaminedModel& model);
