// What the system tells of this process's memory.
#pragma once

#include <cstdint>

// The largest resident set so far; -1 where the system does not tell.
std::int64_t peakBytes();
