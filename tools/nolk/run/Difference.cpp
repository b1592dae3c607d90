#include "nolk/run/Difference.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

double distance(double value, double expected) {
    if (value == expected || (std::isnan(value) && std::isnan(expected))) return 0;
    const double difference = std::fabs(value - expected);
    return std::isnan(difference) ? kInfinity : difference;
}

void raise(Difference& difference, double value, std::size_t element) {
    if (value > difference.maximum) difference = {value, element};
}

}  // namespace

Differences compare(const std::vector<float>& values, const std::vector<float>& expected, const Tolerance& tolerance) {
    Differences all;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const double difference = distance(values[i], expected[i]);
        if (difference == 0) continue;
        const double magnitude = std::isfinite(expected[i]) ? std::fabs(expected[i]) : 0;
        raise(all.absolute, difference, i);
        if (magnitude > 0) raise(all.relative, difference / magnitude, i);
        if (difference > tolerance.absolute + tolerance.relative * magnitude) ++all.tooLarge;
    }
    return all;
}
