// Asks the system for the memory of this process.
#pragma once

#include <cstdint>

// The largest resident set so far; -1 if the system does not tell.
std::int64_t peakBytes();
