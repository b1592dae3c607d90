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

// A bit-exact codebook. Values are in the order of their first appearance, followed by zeros. None if there are more
// than 256 distinct values.
std::optional<Codebook> exactCodebook(const float* floats, std::size_t count);

// A codebook with a small square error: ascending values, and for each float the index of the nearest. Uses Lloyd's
// iteration from a fixed start, so the result is the same on every machine. None if a float is not finite.
std::optional<Codebook> nearestCodebook(const float* floats, std::size_t count);
