#include "model/readFile.h"

#include <climits>
#include <cstdio>
#include <memory>
#include <string>

namespace {

struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

// -1 when the size is unknown or too large for a model. The latter also rejects folders: fopen opens a folder, and the
// size that is found for it is the largest long.
long sizeOf(std::FILE* file) {
    if (std::fseek(file, 0, SEEK_END) != 0) return -1;
    const long size = std::ftell(file);
    if (size > INT_MAX || std::fseek(file, 0, SEEK_SET) != 0) return -1;
    return size;
}

}  // namespace

std::vector<unsigned char> readFile(const char* path, ErrorSink& errors) {
    const std::unique_ptr<std::FILE, Closer> file(std::fopen(path, "rb"));
    if (!file) {
        errors.error(std::string("can not open file: ") + path);
        return {};
    }
    const long size = sizeOf(file.get());
    if (size == 0) return {};
    if (size > 0) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
        if (std::fread(bytes.data(), 1, bytes.size(), file.get()) == bytes.size()) return bytes;
    }
    errors.error(std::string("can not read file: ") + path);
    return {};
}
