// Files that appear as a whole: they are written beside their place and renamed.
#pragma once

#include <string>
#include <string_view>

namespace convert {

// To standard output for "-". A file gets its new contents at once: what stood there stays until all has been written,
// and no half of a file is left behind. Throws std::runtime_error, "path: why", when it cannot be written.
void writeFile(const std::string& path, std::string_view bytes);

}  // namespace convert
