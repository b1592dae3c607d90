// A progress bar on standard error, for the programs. It appears only on a terminal, and only when the work takes
// longer than a second. The destructor removes it.
#pragma once

#include <chrono>

class ProgressBar {
public:
    explicit ProgressBar(const char* what);  // a literal
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // done: 0 to 1. May be called often; it draws at most ten times a second.
    void show(double done);

private:
    using Clock = std::chrono::steady_clock;

    const char* what_;
    bool isTerminal_;
    bool drawn_ = false;
    Clock::time_point next_;  // when to draw
};
