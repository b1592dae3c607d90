// What is made from the command line that the program understands.
#pragma once

#include <string>

namespace CLI {
class App;
}

// A script for bash that completes commands, options, the values that an option lists, and files.
std::string bashCompletion(const CLI::App& app);

// The manual page: roff with the man macros. A footer's paragraph that begins with "Example", and lines that begin with
// two blanks, are set as they are; the program's own footer is about the exit status.
std::string manPage(const CLI::App& app);

// What names no command or no option of the command line, as one line; empty when all is known. Asked before parsing,
// which would complain first of what is missing.
std::string usageError(const CLI::App& app, int argc, const char* const* argv);
