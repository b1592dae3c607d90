// Arithmetic of counts that come from a file: results saturate at 2^63 - 1 instead of wrapping.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <initializer_list>

inline std::int64_t sumOf(std::int64_t a, std::int64_t b) {
    std::int64_t sum;
    return __builtin_add_overflow(a, b, &sum) ? INT64_MAX : sum;
}

// 0 if a factor is negative or 0.
inline std::int64_t productOf(std::initializer_list<std::int64_t> factors) {
    std::int64_t product = 1;
    for (const std::int64_t factor : factors)
        if (factor <= 0) return 0;
    for (const std::int64_t factor : factors)
        if (__builtin_mul_overflow(product, factor, &product)) return INT64_MAX;
    return product;
}

inline std::int64_t elementsOf(const nolk::TensorShape& shape) {
    return productOf({shape.n, shape.c, shape.h, shape.w});
}
