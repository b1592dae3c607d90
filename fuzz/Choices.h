// Turns the bytes that a fuzzer supplies into decisions, so that equal bytes always mean the same calls.
//   Choices choose(data, size);  int extent = choose.below(8) + 1;  if (choose.oneIn(16)) ...
// When the bytes have run out, every decision is 0. The bytes are borrowed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>

class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    bool isEmpty() const { return left_ == 0; }
    std::size_t left() const { return left_; }
    const std::uint8_t* rest() const { return data_; }

    std::uint32_t bits(int bytes) {
        std::uint32_t value = 0;
        for (int i = 0; i < bytes && left_ > 0; ++i, --left_) value |= std::uint32_t{*data_++} << (8 * i);
        return value;
    }

    // From 0 to limit - 1.
    int below(int limit) { return static_cast<int>(bits(limit > 256 ? 2 : 1) % static_cast<std::uint32_t>(limit)); }

    // Mostly false: true for one of n values of a byte, and false when the bytes have run out.
    bool oneIn(int n) { return below(n) == n - 1; }

    // A number at which an extent, an index or a product of both leaves its range.
    std::int32_t edge() { return kEdges[below(static_cast<int>(std::size(kEdges)))]; }

    float real() {
        constexpr float kInfinity = std::numeric_limits<float>::infinity();
        constexpr float kSpecial[] = {0.0f, -0.0f, 1.0f, -1.0f, kInfinity, -kInfinity, 1e38f, 1e-42f};
        const int kind = below(16);
        if (kind == 15) return std::numeric_limits<float>::quiet_NaN();
        if (kind >= 7) return kSpecial[kind - 7];
        return static_cast<float>(static_cast<std::int8_t>(bits(1))) / 16.0f;
    }

    static constexpr std::int32_t kEdges[] = {0,           1,          2,          3,
                                              4,           5,          7,          8,
                                              9,           15,         16,         17,
                                              31,          32,         33,         64,
                                              127,         128,        255,        256,
                                              1000,        4096,       32767,      32768,
                                              65535,       65536,      46340,      46341,
                                              1 << 20,     1 << 24,    1 << 28,    1 << 29,
                                              1 << 30,     715827883,  1431655765, 1431655766,
                                              2147483640,  INT32_MAX,  INT32_MIN,  -1,
                                              -2,          -3,         -4,         -16,
                                              -32768,      -32769,     -65536,     -(1 << 30),
                                              -1431655765, -715827882, -(1 << 24), INT32_MIN + 1};

private:
    const std::uint8_t* data_;
    std::size_t left_;
};
