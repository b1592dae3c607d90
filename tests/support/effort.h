// How much tests do that only repeat themselves with other random values.
#pragma once

#include <algorithm>
#include <cstdlib>

// Percent of the usual rounds: less on machines that are only emulated.
inline int effort() {
    const char* percent = std::getenv("NOLK_TEST_EFFORT");
    return percent ? std::clamp(std::atoi(percent), 1, 500) : 100;
}
