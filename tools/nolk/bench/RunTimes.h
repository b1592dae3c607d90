// Durations of runs, in seconds.
#pragma once

#include <vector>

struct RunTimes {
    double minimum, median, mean, p99;
};

// Percentiles by nearest rank: the smallest duration that so many percent of all are not above. Of at least one.
RunTimes summarise(std::vector<double> seconds);
