// The program's manual page, made from what --help says.
#pragma once

#include <string>

namespace CLI {
class App;
}

// Roff with the man macros. A footer's paragraph that begins with "Example", and lines that begin with two blanks, are
// set as they are; the program's own footer is about the exit status.
std::string manPage(const CLI::App& app);
