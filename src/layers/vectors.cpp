#include "layers/vectors.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "builder/refuse.h"
#include "builder/shapes.h"

std::size_t countWithoutZerosAtEnd(const float* floats, std::size_t count) {
    static constexpr unsigned char kZeros[4096] = {};
    constexpr std::size_t kBlock = sizeof kZeros / sizeof(float);
    const auto areZeros = [](const void* bytes) { return std::memcmp(bytes, kZeros, sizeof kZeros) == 0; };
    while (count >= kBlock && areZeros(floats + count - kBlock)) count -= kBlock;
    while (count > 0 && floats[count - 1] == 0.0f && !std::signbit(floats[count - 1])) --count;
    return count;
}

ChannelVector::ChannelVector(const float* data, int count) {
    if (!data || count < 1) return;
    size_ = count;
    const std::size_t stored = countWithoutZerosAtEnd(data, static_cast<std::size_t>(count));
    if (stored > 0) stored_ = std::make_shared<const std::vector<float>>(data, data + stored);
}

std::vector<float> ChannelVector::first(int n) const {
    const auto count = static_cast<std::size_t>(std::max(std::min(n, size_), 0));
    std::vector<float> values(count);
    if (stored_) std::copy_n(stored_->begin(), std::min(count, stored_->size()), values.begin());
    return values;
}

void checkChannels(const char* operation, const char* name, const ChannelVector& vector,
                   const nolk::TensorShape& input) {
    // For an empty input the layer reads no parameters.
    if (!isRepresentable(input) || elementCount(input) == 0) return;
    if (vector.size() < input.c)
        refuse("%s: input has %d channels, %s has %d", operation, input.c, name, vector.size());
}
