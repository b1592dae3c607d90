// Numbers for tests that are the same on every machine, and comparisons of results.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

// A small fixed generator, so that a seed means the same numbers everywhere.
class Values {
public:
    explicit Values(std::uint32_t seed) : state_(seed * 2654435761u + 1u) {}

    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }

    // From low to high, both included.
    int integer(int low, int high) {
        return low + static_cast<int>(next() % static_cast<std::uint32_t>(high - low + 1));
    }

    // In [-1, 1).
    float real() { return static_cast<float>(next() >> 8) / 8388608.0f - 1.0f; }

    std::vector<float> reals(std::size_t count) {
        std::vector<float> values(count);
        for (float& v : values) v = real();
        return values;
    }

private:
    std::uint32_t state_;
};

// Random values, about one in eight of them NaN, an infinity, -0, 0 or huge: they expose careless arithmetic.
inline std::vector<float> valuesWithSpecials(std::uint32_t seed, std::size_t count) {
    const float infinity = std::numeric_limits<float>::infinity();
    const float specials[] = {std::numeric_limits<float>::quiet_NaN(), infinity, -infinity, -0.0f, 0.0f, 1e38f};
    Values random(seed);
    std::vector<float> values = random.reals(count);
    for (float& v : values)
        if (random.integer(0, 7) == 0) v = specials[random.integer(0, 5)];
    return values;
}

// The same bits everywhere; any NaN equals any NaN.
inline void expectSameBits(const std::vector<float>& actual, const std::vector<float>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (std::isnan(actual[i]) && std::isnan(expected[i])) continue;
        ASSERT_EQ(std::memcmp(&actual[i], &expected[i], sizeof(float)), 0)
            << "element " << i << ": " << actual[i] << ", expected " << expected[i];
    }
}

// Within tolerance, absolute and relative together: |actual - expected| <= tolerance * (1 + |expected|). NaN and
// infinities must be equal.
inline void expectClose(const std::vector<float>& actual, const std::vector<float>& expected, float tolerance) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (actual[i] == expected[i] || (std::isnan(actual[i]) && std::isnan(expected[i]))) continue;
        ASSERT_LE(std::fabs(actual[i] - expected[i]), tolerance * (1.0f + std::fabs(expected[i])))
            << "element " << i << ": " << actual[i] << ", expected " << expected[i];
    }
}
