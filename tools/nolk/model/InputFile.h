// Reads a regular file from start to end, in pieces. The caller must have checked the sizes, for example with left().
//   InputFile file("x.npy");  file.read(magic, 6);  if (file.left() != wanted) file.fail("...");
// All failures are a std::runtime_error with one line, "x.npy: what".
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

class InputFile {
public:
    // Fails if there is no such file, or if it is not a regular file, because then its size is unknown.
    explicit InputFile(const std::string& path);

    // Bytes that have not been read yet.
    std::int64_t left() const { return left_; }

    // Fails when fewer than `bytes` are left.
    void read(void* to, std::int64_t bytes);

    // The next byte, or -1 at the end.
    int get();

    [[noreturn]] void fail(const std::string& what) const;

private:
    std::string path_;
    std::ifstream file_;
    std::int64_t left_ = 0;
};
