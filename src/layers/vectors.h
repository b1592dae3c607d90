// Vectors of parameters, one value per channel: copying and checking them.
#pragma once

#include <nolk.h>

#include <vector>

// The vector's floats; empty for a null pointer or a count below 1.
inline std::vector<float> copied(const nolk::Vector& vector) {
    if (!vector.data || vector.count < 1) return {};
    return {vector.data, vector.data + vector.count};
}

// Throws std::invalid_argument, naming operation and vector, when the input has more channels than the vector has
// floats.
void checkChannels(const char* operation, const char* name, const std::vector<float>& vector,
                   const nolk::TensorShape& input);
