#include "ProgressBar.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

constexpr std::chrono::milliseconds kDelay(1000), kInterval(100);
constexpr std::size_t kWidth = 40;

}  // namespace

ProgressBar::ProgressBar(const char* what)
    : what_(what), isTerminal_(isatty(STDERR_FILENO) != 0), next_(Clock::now() + kDelay) {}

ProgressBar::~ProgressBar() {
    if (drawn_) std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(double done) {
    if (!isTerminal_ || Clock::now() < next_) return;
    next_ = Clock::now() + kInterval;
    const double part = std::clamp(done, 0.0, 1.0);
    const auto filled = static_cast<std::size_t>(part * kWidth);
    const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
    std::fprintf(stderr, "\r%s [%s] %3.0f %%", what_, bar.c_str(), 100 * part);
    drawn_ = true;
}
