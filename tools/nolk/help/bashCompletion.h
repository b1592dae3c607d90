// Completion for bash, made from the command line that the program understands.
#pragma once

#include <string>

namespace CLI {
class App;
}

// A script that completes commands, options, the values that an option lists, and files.
std::string bashCompletion(const CLI::App& app);
