#include "nolk/model/InputFile.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

InputFile::InputFile(const std::string& path) : path_(path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) fail("no such file");
    if (error) fail(error.message());
    // Checked before opening, because opening a pipe would wait for its other end.
    if (std::filesystem::is_directory(status)) fail("is a directory");
    if (!std::filesystem::is_regular_file(status)) fail("not a regular file");
    left_ = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
    if (error) fail(error.message());
    file_.open(path, std::ios::binary);
    if (!file_) fail(std::string("can not open file: ") + std::strerror(errno));
}

void InputFile::read(void* to, std::int64_t bytes) {
    if (bytes > left_) fail("ends too early");
    if (!file_.read(static_cast<char*>(to), static_cast<std::streamsize>(bytes))) fail("can not read file");
    left_ -= bytes;
}

int InputFile::get() {
    if (left_ == 0) return -1;
    unsigned char byte;
    read(&byte, 1);
    return byte;
}

void InputFile::fail(const std::string& what) const { throw std::runtime_error(path_ + ": " + what); }
