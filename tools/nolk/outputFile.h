// What a command writes to a file of the user's choice.
#pragma once

#include <string>

// To standard output for "-". A file gets its new contents at once: what stood there stays until all has been written,
// and no half of a file is left behind. Throws std::runtime_error, "path: why", when it cannot be written.
void writeText(const std::string& path, const std::string& text);
