// Repeats what is to be measured, and sums up how long it took.
//   repeat({0, 3}, "runs", [&] { seconds.push_back(timeOf(run)); });  summarise(seconds).median
#pragma once

#include <functional>
#include <vector>

struct Limit {
    int runs = 0;  // 0: as many as the seconds allow, but one at least and kMostRuns at most
    double seconds = 3;
};

constexpr int kMostRuns = 10'000'000;

// Calls `once` until the limit is reached. On a terminal a bar on standard error, headed by `what`, shows how far it
// has come when that takes longer than a second.
void repeat(const Limit& limit, const char* what, const std::function<void()>& once);

// Durations of runs, in seconds.
struct RunTimes {
    double minimum, median, mean, p99;
};

// Percentiles by nearest rank: the smallest duration that so many percent of all are not above. Of at least one.
RunTimes summarise(std::vector<double> seconds);
