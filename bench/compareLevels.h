// Registers comparisons of one computation with different matrix products: those for each newer instruction set that
// this processor supports with those for the oldest.
#pragma once

#include <functional>
#include <string>

void compareLevels(const std::string& name, const std::function<void()>& run);
