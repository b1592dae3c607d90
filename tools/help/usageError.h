// Finds unknown words on a command line, for programs with and without commands.
#pragma once

#include <string>

namespace CLI {
class App;
}

// One line about an unknown command or option; empty when all are known. Call it before parsing, because the parser
// would first report missing arguments.
std::string usageError(const CLI::App& app, int argc, const char* const* argv);
