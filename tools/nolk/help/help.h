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
