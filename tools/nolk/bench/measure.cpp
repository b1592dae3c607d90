#include "nolk/bench/measure.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <numeric>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

// Shows progress on a terminal. The destructor removes the bar.
class ProgressBar {
public:
    explicit ProgressBar(const char* what) : what_(what), isTerminal_(isatty(STDERR_FILENO) != 0) {}
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    ~ProgressBar() {
        if (drawn_) std::fputs("\r\033[K", stderr);
    }

    // done: 0 to 1. May be called often; it draws at most ten times a second.
    void show(double done) {
        if (!isTerminal_ || Clock::now() < next_) return;
        next_ = Clock::now() + std::chrono::milliseconds(100);
        constexpr std::size_t kWidth = 40;
        const double part = std::clamp(done, 0.0, 1.0);
        const auto filled = static_cast<std::size_t>(part * kWidth);
        const std::string bar = std::string(filled, '#') + std::string(kWidth - filled, '.');
        std::fprintf(stderr, "\r%s [%s] %3.0f %%", what_, bar.c_str(), 100 * part);
        drawn_ = true;
    }

private:
    const char* what_;
    bool isTerminal_;
    bool drawn_ = false;
    Clock::time_point next_ = Clock::now() + std::chrono::seconds(1);  // when to draw
};

double percentile(const std::vector<double>& sorted, std::size_t percent) {
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

}  // namespace

void repeat(const Limit& limit, const char* what, const std::function<void()>& once) {
    ProgressBar bar(what);
    const Clock::time_point start = Clock::now();
    double done = 0;
    for (int runs = 1; done < 1; ++runs) {
        once();
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        done = limit.runs > 0 ? static_cast<double>(runs) / limit.runs
                              : std::max(seconds / limit.seconds, static_cast<double>(runs) / kMostRuns);
        bar.show(done);
    }
}

RunTimes summarise(std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    const double sum = std::accumulate(seconds.begin(), seconds.end(), 0.0);
    return {seconds.front(), percentile(seconds, 50), sum / static_cast<double>(seconds.size()),
            percentile(seconds, 99)};
}
