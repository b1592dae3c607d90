// Registers comparisons of one computation with itself: its matrix products made for each newer instruction set that
// this processor has, beside those for the oldest.
#pragma once

#include <functional>
#include <string>

void compareLevels(const std::string& name, const std::function<void()>& run);
