#include "builder/shapes.h"

#include <climits>
#include <cstdint>

#include "math/quotient.h"

int elementCount(const nolk::TensorShape& shape) { return shape.n * shape.c * shape.h * shape.w; }

bool isRepresentable(const nolk::TensorShape& shape) {
    const int extents[] = {shape.n, shape.c, shape.h, shape.w};
    bool empty = false;
    for (const int extent : extents) {
        if (extent < 0) return false;
        empty = empty || extent == 0;
    }
    if (empty) return true;
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
