// Text that a command writes to a file of the user's choice.
#pragma once

#include <string>

// To standard output for "-". Throws std::runtime_error, "path: why", when it cannot be written.
void writeText(const std::string& path, const std::string& text);
