#include "writeText.h"

#include <fcntl.h>
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

// Writes a file that gets its name when it is whole, so that a program that is stopped leaves no part of it. Fails
// where the file system has no files without names.
int writeNamedLast(const std::string& path, std::string_view text) {
    const std::string folder = fs::path(path).parent_path().string();
    constexpr mode_t kMode = 0666;  // less the umask, as fopen
    const int descriptor = open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kMode);
    if (descriptor < 0) return errno;
    std::FILE* file = fdopen(descriptor, "wb");
    if (!file) return errno;
    int error = writeAll(file, text);
    const std::string unnamed = "/proc/self/fd/" + std::to_string(descriptor);
    if (error == 0 && linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) error = errno;
    return std::fclose(file) == 0 || error != 0 ? error : errno;
}

int replace(const std::string& path, std::string_view text) {
    const std::string part = path + ".part" + std::to_string(getpid());
    int error = writeNamedLast(part, text);
    if (error != 0 && error != ENOSPC) error = writeTo(part, text);
    if (error == 0 && std::rename(part.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) std::remove(part.c_str());
    return error;
}

// A symbolic link is kept; what it points to is written.
std::string targetOf(const std::string& path) {
    std::error_code unknown;
    const std::string target = fs::exists(path, unknown) ? fs::canonical(path, unknown).string() : path;
    return target.empty() ? path : target;
}

int writeWhole(const std::string& path, std::string_view text) {
    std::error_code unknown;  // ignored: writing fails with the reason
    const fs::file_status status = fs::status(path, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status)) return writeTo(path, text);  // a pipe, a device
    return replace(targetOf(path), text);
}

[[noreturn]] void refuse(const std::string& path, int error) {
    throw std::runtime_error((path == "-" ? "standard output" : path) + ": cannot be written: " + std::strerror(error));
}

}  // namespace

void writeText(const std::string& path, std::string_view text) {
    const int error = path == "-" ? writeAll(stdout, text) : writeWhole(path, text);
    if (error != 0) refuse(path, error);
}

void checkWritable(const std::string& path) {
    if (path == "-") return;
    std::error_code unknown;  // ignored: writing fails with the reason
    const fs::file_status status = fs::status(path, unknown);
    if (fs::is_directory(status)) refuse(path, EISDIR);
    if (fs::exists(status) && !fs::is_regular_file(status)) return;
    const fs::path folder = fs::path(targetOf(path)).parent_path();
    if (access(folder.empty() ? "." : folder.c_str(), W_OK | X_OK) != 0) refuse(path, errno);
}
