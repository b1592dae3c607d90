// Repeats a function, and summarises how long it took.
//   repeat({0, 3}, "runs", [&] { seconds.push_back(timeOf(run)); });  summarise(seconds).median
#pragma once

#include <functional>
#include <vector>

struct Limit {
    int runs = 0;  // 0: as many as the seconds allow, but at least one and at most kMostRuns
    double seconds = 3;
};

constexpr int kMostRuns = 10'000'000;

// Calls `once` until the limit is reached. If that takes longer than a second, a progress bar with the title `what` is
// shown on standard error, provided that it is a terminal.
void repeat(const Limit& limit, const char* what, const std::function<void()>& once);

// Durations of runs, in seconds.
struct RunTimes {
    double minimum, median, mean, p99;
};

// Percentiles by nearest rank: the smallest duration that is not below that percentage of all durations. Needs at least
// one duration.
RunTimes summarise(std::vector<double> seconds);
