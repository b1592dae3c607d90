// A regular file that is read from its start to its end, in pieces whose sizes the caller has reasons to trust.
//   InputFile file("x.npy");  file.read(magic, 6);  if (file.left() != wanted) file.fail("...");
// Everything that goes wrong is a std::runtime_error of one line, "x.npy: what".
#pragma once

#include <cstdint>
#include <fstream>
#include <string>

class InputFile {
public:
    // Fails when there is no such file, or something else than a regular file, whose size nobody knows.
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
