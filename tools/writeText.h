// Writing to files and standard output, for the programs.
#pragma once

#include <string>
#include <string_view>

// Throws like writeText where that would fail for a reason that is visible in advance: the path is a folder, or its
// folder is missing or read-only. Call it before long work.
void checkWritable(const std::string& path);

// Writes text to a file, or to standard output for "-". A regular file is replaced atomically: if writing fails, the
// old contents stay and no partial file is left. Throws std::runtime_error, "path: why", when it cannot be written.
void writeText(const std::string& path, std::string_view text);
