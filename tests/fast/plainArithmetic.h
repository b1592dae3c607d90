// The fixed arithmetic of docs/arithmetic.md as plain code for one element, and sums over plain loops.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace plain {

// e^x = 2^n * (1 + growth)
struct Exponential {
    int n;
    float growth;
};

inline Exponential reduceExp(float x) {
    const float n = std::fma(x, 0x1.715476p+0f, 0x1.8p23f) - 0x1.8p23f;
    float r = std::fma(n, -0x1.62e43p-1f, x);
    r = std::fma(n, 0x1.05c61p-29f, r);
    float p = 0x1.6a4d6p-10f;
    for (const float coefficient : {0x1.12398ep-7f, 0x1.5558bp-5f, 0x1.555492p-3f, 0x1.fffffcp-2f})
        p = std::fma(p, r, coefficient);
    return {static_cast<int>(n), std::fma(p, r * r, r)};
}

inline float exp(float x) {
    if (std::isnan(x)) return x;
    const Exponential e = reduceExp(x < -104.0f ? -104.0f : x > 89.0f ? 89.0f : x);
    return std::ldexp(e.growth + 1.0f, e.n);
}

inline float sigmoid(float x) { return 1.0f / (exp(-x) + 1.0f); }

inline float tanh(float x) {
    if (std::isnan(x)) return x;
    const float size = std::fabs(x) > 10.0f ? 10.0f : std::fabs(x);
    const Exponential e = reduceExp(size + size);
    const float scale = std::ldexp(1.0f, e.n);
    const float g = std::fma(scale, e.growth, scale - 1.0f);
    return std::copysign(g / (g + 2.0f), x);
}

// 16 partial results, element i in number i % 16, combined in the fixed tree.
template <typename Add, typename Combine>
float reduce16(const std::vector<float>& x, float start, Add add, Combine combine) {
    float parts[16];
    for (float& part : parts) part = start;
    for (std::size_t i = 0; i < x.size(); ++i) parts[i % 16] = add(parts[i % 16], x[i]);
    for (int width = 8; width > 0; width /= 2)
        for (int i = 0; i < width; ++i) parts[i] = combine(parts[i], parts[i + width]);
    return parts[0];
}

inline float plus(float a, float b) { return a + b; }
// NaN stands for no value yet.
inline float plusOrNext(float sum, float x) { return std::isnan(sum) ? x : x + sum; }

template <typename Add>
float chain(const std::vector<float>& x, float start, Add add) {
    for (const float v : x) start = add(start, v);
    return start;
}

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();

// y = x * k + t with mean and variance of x.
inline std::vector<float> normalized(std::vector<float> x, float scale, float bias, float epsilon) {
    const auto size = static_cast<float>(x.size());
    const float mean = reduce16(x, -0.0f, plus, plus) / size;
    const float squares = reduce16(
        x, 0.0f, [mean](float sum, float v) { return std::fma(v - mean, v - mean, sum); }, plus);
    const float k = scale / std::sqrt(squares / size + epsilon);
    const float t = std::fma(-mean, k, bias);
    for (float& v : x) v = std::fma(v, k, t);
    return x;
}

}  // namespace plain
