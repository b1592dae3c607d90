// A tensor as 256 values and an index for each of its floats: the compressed form of version 4.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

struct Codebook {
    std::array<float, 256> values{};
    std::vector<unsigned char> indices;
};

// Bit-exact; values in the order of their first appearance, zeros behind them. None for more than 256 distinct values.
std::optional<Codebook> exactCodebook(const float* floats, std::size_t count);

// Values of small square error (Lloyd's iteration from a fixed start, so the same on every machine), ascending, and
// each float's nearest. None when a float is not finite.
std::optional<Codebook> nearestCodebook(const float* floats, std::size_t count);
