#pragma once

#include <string>

namespace CLI {
class App;
}

// What names no command or no option of the command line, as one line; empty when all is known. Asked before parsing,
// which would complain first of what is missing.
std::string usageError(const CLI::App& app, int argc, const char* const* argv);
