#include "nolk/outputFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

[[noreturn]] void fail(const std::string& path, int error) {
    throw std::runtime_error(path + ": cannot be written: " + std::strerror(error));
}

}  // namespace

void writeText(const std::string& path, const std::string& text) {
    const bool toStandardOutput = path == "-";
    std::FILE* file = toStandardOutput ? stdout : std::fopen(path.c_str(), "wb");
    if (!file) fail(path, errno);
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const bool flushed = (toStandardOutput ? std::fflush(file) : std::fclose(file)) == 0;
    if (!written || !flushed) fail(path, errno);
}
