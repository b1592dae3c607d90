// Compares values with expected ones. Two NaNs are equal, and so are two infinities of the same sign; the difference
// between NaN and a number is infinite. The relative difference |value - expected| / |expected| leaves out elements
// that are expected to be 0.
#pragma once

#include <cstddef>
#include <vector>

// An element's difference is too large if it exceeds absolute + relative * |expected|.
struct Tolerance {
    double absolute = 0;
    double relative = 0;
};

struct Difference {
    double maximum = 0;
    std::size_t element = 0;  // the first that has it
};

struct Differences {
    Difference absolute;
    Difference relative;
    std::size_t tooLarge = 0;  // elements
};

// The vectors must have the same size.
Differences compare(const std::vector<float>& values, const std::vector<float>& expected, const Tolerance& tolerance);
