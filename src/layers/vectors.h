// Vectors of parameters, one value per channel: copying and checking them.
//   ChannelVector scale(vector.data, vector.count);  const float s = scale[c];
// A file can announce many vectors of 32,767 zeros in a few bytes each, so zeros at the end are not stored. A factory
// and its layers share the values: a copy has the same ones.
#pragma once

#include <nolk.h>

#include <cstddef>
#include <memory>
#include <vector>

// The number of floats without the zeros at the end. A -0 is not a zero here.
std::size_t countWithoutZerosAtEnd(const float* floats, std::size_t count);

class ChannelVector {
public:
    ChannelVector() = default;
    // Copies the floats. A null pointer or a count below 1 makes an empty vector.
    ChannelVector(const float* data, int count);
    explicit ChannelVector(const nolk::Vector& vector) : ChannelVector(vector.data, vector.count) {}

    // The value of a channel below size().
    float operator[](std::size_t c) const { return stored_ && c < stored_->size() ? (*stored_)[c] : 0.0f; }
    int size() const { return size_; }
    bool empty() const { return size_ == 0; }
    // Values from here on are 0.
    int storedSize() const { return stored_ ? static_cast<int>(stored_->size()) : 0; }
    // The first n values, or all if there are fewer.
    std::vector<float> first(int n) const;

private:
    int size_ = 0;
    std::shared_ptr<const std::vector<float>> stored_;  // null if all are 0
};

// Throws std::invalid_argument, naming operation and vector, when the input has more channels than the vector has
// floats.
void checkChannels(const char* operation, const char* name, const ChannelVector& vector,
                   const nolk::TensorShape& input);
