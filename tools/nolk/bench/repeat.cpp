#include "nolk/bench/repeat.h"

#include <algorithm>
#include <chrono>

#include "nolk/bench/ProgressBar.h"

void repeat(const Limit& limit, const char* what, const std::function<void()>& once) {
    using Clock = std::chrono::steady_clock;
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
