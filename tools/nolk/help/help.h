// Generates help from the definitions of commands and options.
#pragma once

#include <string>

namespace CLI {
class App;
}

// A script for bash that completes commands, options, the values that an option lists, and files.
std::string bashCompletion(const CLI::App& app);

// The manual page: roff with the man macros. In a footer, a paragraph that begins with "Example" and lines that begin
// with two blanks are printed unchanged. The footer of the program itself describes the exit status.
std::string manPage(const CLI::App& app);

// One line about an unknown command or option; empty when all are known. Call it before parsing, because the parser
// would first report missing arguments.
std::string usageError(const CLI::App& app, int argc, const char* const* argv);
