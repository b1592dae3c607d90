#include "writeText.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// These return 0, or errno.
int writeAll(std::FILE* file, std::string_view text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return written && std::fflush(file) == 0 ? 0 : errno;
}

int writeTo(const std::string& path, std::string_view text) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return errno;
    const int error = writeAll(file, text);
    return std::fclose(file) == 0 || error != 0 ? error : errno;
}

int replace(const std::string& path, std::string_view text) {
    const std::string part = path + ".part" + std::to_string(getpid());
    int error = writeTo(part, text);
    if (error == 0 && std::rename(part.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) std::remove(part.c_str());
    return error;
}

int writeWhole(const std::string& path, std::string_view text) {
    std::error_code unknown;  // ignored: writing fails with the reason
    const fs::file_status status = fs::status(path, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status)) return writeTo(path, text);  // a pipe, a device
    const std::string target =
        fs::exists(status) ? fs::canonical(path, unknown).string() : path;  // keeps symbolic links
    return replace(target.empty() ? path : target, text);
}

}  // namespace

void writeText(const std::string& path, std::string_view text) {
    const int error = path == "-" ? writeAll(stdout, text) : writeWhole(path, text);
    if (error != 0)
        throw std::runtime_error((path == "-" ? "standard output" : path) +
                                 ": cannot be written: " + std::strerror(error));
}
