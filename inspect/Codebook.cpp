#include "inspect/Codebook.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <unordered_map>

namespace {

constexpr std::size_t kValues = 256;
constexpr int kIterations = 60;

using Centres = std::array<double, kValues>;

// The sorted floats and their prefix sums. A cluster is a range of them, and its mean takes two look-ups.
struct SortedFloats {
    std::vector<float> values;
    std::vector<double> sums;  // sums[i] of the first i

    SortedFloats(const float* floats, std::size_t count) : values(floats, floats + count), sums(count + 1, 0.0) {
        std::sort(values.begin(), values.end());
        for (std::size_t i = 0; i < count; ++i) sums[i + 1] = sums[i] + static_cast<double>(values[i]);
    }
};

// The best density of centres is close to the cube root of the density of the floats (Panter and Dite). Between two
// quantiles that are w apart, the density of the floats is proportional to 1 / w, so the share of the centres should be
// w * w^(-1/3) = w^(2/3). Here it is w^(3/4), which is close and needs only square roots, whose results are the same on
// every machine.
Centres startingCentres(const std::vector<float>& sorted) {
    constexpr std::size_t kQuantiles = 1024;
    std::array<double, kQuantiles + 1> quantiles, shares{};
    for (std::size_t i = 0; i <= kQuantiles; ++i) quantiles[i] = sorted[i * (sorted.size() - 1) / kQuantiles];
    for (std::size_t i = 0; i < kQuantiles; ++i) {
        const double width = quantiles[i + 1] - quantiles[i];
        shares[i + 1] = shares[i] + std::sqrt(width * std::sqrt(width));
    }
    Centres centres;
    std::size_t i = 0;
    for (std::size_t k = 0; k < kValues; ++k) {
        const double wanted = shares.back() * (static_cast<double>(k) + 0.5) / kValues;
        while (i + 1 < kQuantiles && shares[i + 1] < wanted) ++i;
        const double share = shares[i + 1] - shares[i];
        const double part = share > 0 ? (wanted - shares[i]) / share : 0.0;
        centres[k] = quantiles[i] + part * (quantiles[i + 1] - quantiles[i]);
    }
    return centres;
}

// Moves each centre to the mean of the floats nearest to it. False once none moves.
bool improve(Centres& centres, const SortedFloats& floats) {
    const Centres before = centres;
    std::size_t begin = 0;
    for (std::size_t k = 0; k < kValues; ++k) {
        std::size_t end = floats.values.size();
        if (k + 1 < kValues) {
            const double border = (before[k] + before[k + 1]) / 2;
            end = static_cast<std::size_t>(
                std::upper_bound(floats.values.begin(), floats.values.end(), border,
                                 [](double b, float value) { return b < static_cast<double>(value); }) -
                floats.values.begin());
        }
        if (end > begin) centres[k] = (floats.sums[end] - floats.sums[begin]) / static_cast<double>(end - begin);
        begin = std::max(begin, end);
    }
    std::sort(centres.begin(), centres.end());
    return centres != before;
}

unsigned char nearest(const std::array<float, kValues>& values, float x) {
    const auto above = std::lower_bound(values.begin(), values.end(), x);
    if (above == values.begin()) return 0;
    const auto k = static_cast<std::size_t>(above - values.begin());
    if (above == values.end()) return static_cast<unsigned char>(k - 1);
    const double toBelow = static_cast<double>(x) - static_cast<double>(values[k - 1]);
    const double toAbove = static_cast<double>(values[k]) - static_cast<double>(x);
    return static_cast<unsigned char>(toAbove < toBelow ? k : k - 1);
}

}  // namespace

std::optional<Codebook> exactCodebook(const float* floats, std::size_t count) {
    Codebook book;
    std::unordered_map<std::uint32_t, unsigned char> indexOf;  // by bits: 0 and -0 differ, a NaN equals itself
    book.indices.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t bits;
        std::memcpy(&bits, &floats[i], sizeof bits);
        auto found = indexOf.find(bits);
        if (found == indexOf.end()) {
            if (indexOf.size() == kValues) return std::nullopt;
            std::memcpy(&book.values[indexOf.size()], &bits, sizeof bits);
            found = indexOf.emplace(bits, static_cast<unsigned char>(indexOf.size())).first;
        }
        book.indices.push_back(found->second);
    }
    return book;
}

std::optional<Codebook> nearestCodebook(const float* floats, std::size_t count) {
    if (count == 0 || !std::all_of(floats, floats + count, [](float x) { return std::isfinite(x); }))
        return std::nullopt;
    const SortedFloats sorted(floats, count);
    Centres centres = startingCentres(sorted.values);
    for (int i = 0; i < kIterations && improve(centres, sorted); ++i) {
    }
    Codebook book;
    for (std::size_t k = 0; k < kValues; ++k) book.values[k] = static_cast<float>(centres[k]);
    for (std::size_t i = 0; i < count; ++i) book.indices.push_back(nearest(book.values, floats[i]));
    return book;
}
