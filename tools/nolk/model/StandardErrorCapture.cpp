#include "nolk/model/StandardErrorCapture.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace {

StandardErrorCapture* active = nullptr;

std::string oneLine(const std::string& text) {
    std::string line;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        if (end > begin) line += (line.empty() ? "" : "; ") + text.substr(begin, end - begin);
        begin = end + 1;
    }
    return line;
}

}  // namespace

StandardErrorCapture::StandardErrorCapture() : memory_(memfd_create("stderr", MFD_CLOEXEC)), saved_(-1) {
    assert(!active);
    std::fflush(stderr);
    if (memory_ >= 0) saved_ = dup(STDERR_FILENO);
    if (memory_ < 0 || saved_ < 0 || dup2(memory_, STDERR_FILENO) < 0) {
        const int error = errno;
        if (saved_ >= 0) close(saved_);
        if (memory_ >= 0) close(memory_);
        throw std::system_error(error, std::generic_category(), "standard error");
    }
    static const bool registered = std::atexit(writeAtExit) == 0;
    if (registered) active = this;
}

StandardErrorCapture::~StandardErrorCapture() {
    restore();
    close(memory_);
}

std::string StandardErrorCapture::take() {
    std::fflush(stderr);
    std::string text;
    char part[512];
    lseek(memory_, 0, SEEK_SET);
    for (ssize_t n; (n = read(memory_, part, sizeof part)) > 0;) text.append(part, static_cast<std::size_t>(n));
    if (!text.empty() && ftruncate(memory_, 0) == 0) lseek(memory_, 0, SEEK_SET);
    return oneLine(text);
}

void StandardErrorCapture::restore() {
    std::fflush(stderr);
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    active = nullptr;
}

// The library ends the process for graphs that contradict themselves, without unwinding the stack.
void StandardErrorCapture::writeAtExit() {
    if (!active) return;
    const std::string text = active->take();
    active->restore();
    if (!text.empty()) std::fprintf(stderr, "nolk: %s\n", text.c_str());
}
