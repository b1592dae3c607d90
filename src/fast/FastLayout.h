// How a tensor lies in memory.
//   plain   [n, c, h, w], as hosts have it
//   blocks  [n, c / 16, h, w, 16]: 16 channels next to each other; the last block may have unused lanes, whose values
//           mean nothing and are never mixed with others
// Both may have a border of zeros around each plane, which the padding of a convolution reads.
#pragma once

#include <nolk.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "fast/kernels/products.h"

enum class FastLayout { plain, blocks };

struct FastBorder {
    int top = 0, bottom = 0, left = 0, right = 0;

    bool isEmpty() const { return top == 0 && bottom == 0 && left == 0 && right == 0; }
    void enlarge(const FastBorder& other) {
        top = std::max(top, other.top);
        bottom = std::max(bottom, other.bottom);
        left = std::max(left, other.left);
        right = std::max(right, other.right);
    }
};

inline bool sameBorder(const FastBorder& a, const FastBorder& b) {
    return a.top == b.top && a.bottom == b.bottom && a.left == b.left && a.right == b.right;
}

// Whether all but the number of dimensions are equal.
inline bool sameExtents(const nolk::TensorShape& a, const nolk::TensorShape& b) {
    return a.n == b.n && a.c == b.c && a.h == b.h && a.w == b.w;
}

// Not a + b - 1, which wraps for lengths next to 2^31.
inline int divideUp(int a, int b) { return a / b + (a % b > 0 ? 1 : 0); }

inline int blocksOf(int channels) { return divideUp(channels, kFastBlock); }

// Distances in floats. A plane is one channel or one block of channels.
struct FastStrides {
    std::ptrdiff_t pixel = 0, row = 0, plane = 0, sample = 0;
    int planes = 0;

    FastStrides() = default;
    FastStrides(const nolk::TensorShape& shape, FastLayout layout, const FastBorder& border)
        : pixel(layout == FastLayout::plain ? 1 : kFastBlock),
          row((std::ptrdiff_t{border.left} + shape.w + border.right) * pixel),
          plane((std::ptrdiff_t{border.top} + shape.h + border.bottom) * row),
          planes(layout == FastLayout::plain ? shape.c : blocksOf(shape.c)) {
        sample = plane * planes;
    }

    // From the first float of a plane to its first pixel.
    std::ptrdiff_t origin(const FastBorder& border) const { return border.top * row + border.left * pixel; }
};
