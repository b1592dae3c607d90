// A bar on standard error that says how much is done. It appears only on a terminal, and only when the work takes
// longer than a second; it goes with the object.
#pragma once

#include <chrono>

namespace convert {

class ProgressBar {
public:
    explicit ProgressBar(const char* what);  // a literal
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // done: 0 to 1. May be called as often as one likes; draws ten times a second.
    void show(double done);

private:
    using Clock = std::chrono::steady_clock;

    const char* what_;
    bool isTerminal_;
    bool drawn_ = false;
    Clock::time_point next_;  // when to draw
};

}  // namespace convert
