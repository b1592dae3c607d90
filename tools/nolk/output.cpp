#include "nolk/output.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// These return 0, or errno.
int writeAll(std::FILE* file, const std::string& text) {
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return written && std::fflush(file) == 0 ? 0 : errno;
}

int writeTo(const std::string& path, const std::string& text) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) return errno;
    const int error = writeAll(file, text);
    return std::fclose(file) == 0 || error != 0 ? error : errno;
}

int replace(const std::string& path, const std::string& text) {
    const std::string part = path + ".part" + std::to_string(getpid());
    int error = writeTo(part, text);
    if (error == 0 && std::rename(part.c_str(), path.c_str()) != 0) error = errno;
    if (error != 0) std::remove(part.c_str());
    return error;
}

int writeFile(const std::string& path, const std::string& text) {
    std::error_code unknown;  // ignored: writing fails with the reason
    const fs::file_status status = fs::status(path, unknown);
    if (fs::exists(status) && !fs::is_regular_file(status)) return writeTo(path, text);  // a pipe, a device
    const std::string target =
        fs::exists(status) ? fs::canonical(path, unknown).string() : path;  // keeps symbolic links
    return replace(target.empty() ? path : target, text);
}

}  // namespace

std::string Table::text() const {
    std::vector<std::size_t> widths;
    std::vector<std::string> titles;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        std::size_t widest = 0;
        for (const auto& row : rows_) widest = std::max(widest, row[c].size());
        widths.push_back(widest == 0 ? 0 : std::max(widest, columns_[c].title.size()));
        titles.push_back(columns_[c].title);
    }
    std::string text;
    const auto addLine = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (std::size_t c = 0; c < cells.size(); ++c) {
            if (widths[c] == 0) continue;
            if (!line.empty()) line += "  ";
            const std::string blanks(widths[c] - cells[c].size(), ' ');
            line += columns_[c].alignRight ? blanks + cells[c] : cells[c] + blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    };
    addLine(titles);
    for (const auto& row : rows_) addLine(row);
    return text;
}

void writeText(const std::string& path, const std::string& text) {
    const int error = path == "-" ? writeAll(stdout, text) : writeFile(path, text);
    if (error != 0)
        throw std::runtime_error((path == "-" ? "standard output" : path) +
                                 ": cannot be written: " + std::strerror(error));
}
