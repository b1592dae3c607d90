// The arena as a picture: time along x, step by step, offsets along y, and a box for each range that tensors share.
#pragma once

#include <string>

#include "nolk/info/ExaminedModel.h"

// An SVG. Throws std::runtime_error when the network was too large to be built, or has no arena.
std::string memoryPicture(const ExaminedModel& model);
