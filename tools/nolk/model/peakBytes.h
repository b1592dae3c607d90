#pragma once

#include <cstdint>
#include <optional>

// The largest resident set of this process so far; nothing where the system does not tell.
std::optional<std::int64_t> peakBytes();
