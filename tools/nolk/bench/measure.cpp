#include "nolk/bench/measure.h"

#include <algorithm>
#include <chrono>
#include <numeric>

#include "ProgressBar.h"

namespace {

using Clock = std::chrono::steady_clock;

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
