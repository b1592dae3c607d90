#include "builder/shapes.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <iterator>

#include "math/quotient.h"

int elementCount(const nolk::TensorShape& shape) {
    const bool empty = shape.n < 1 || shape.c < 1 || shape.h < 1 || shape.w < 1;
    return empty ? 0 : shape.n * shape.c * shape.h * shape.w;
}

bool isRepresentable(const nolk::TensorShape& shape) {
    const int extents[] = {shape.n, shape.c, shape.h, shape.w};
    if (*std::min_element(std::begin(extents), std::end(extents)) < 1) return true;
    std::int64_t count = 1;
    for (const int extent : extents) {
        count *= extent;
        if (count > INT_MAX) return false;
    }
    return true;
}

bool sameShape(const nolk::TensorShape& a, const nolk::TensorShape& b) {
    return a.n == b.n && a.c == b.c && a.h == b.h && a.w == b.w && a.dims == b.dims;
}

int windowPositions(int paddedIn, int window, int stride) { return quotient(paddedIn - window, stride) + 1; }
