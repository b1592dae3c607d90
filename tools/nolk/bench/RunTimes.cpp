#include "nolk/bench/RunTimes.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace {

double percentile(const std::vector<double>& sorted, std::size_t percent) {
    return sorted[(sorted.size() * percent + 99) / 100 - 1];
}

}  // namespace

RunTimes summarise(std::vector<double> seconds) {
    std::sort(seconds.begin(), seconds.end());
    const double sum = std::accumulate(seconds.begin(), seconds.end(), 0.0);
    return {seconds.front(), percentile(seconds, 50), sum / static_cast<double>(seconds.size()),
            percentile(seconds, 99)};
}
