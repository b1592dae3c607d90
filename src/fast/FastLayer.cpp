#include "fast/FastLayer.h"

#include <algorithm>

void FastView::clearBorder(float* plane, int begin, int end) const {
    if (border.isEmpty()) return;
    const auto fill = [](float* from, const float* to) {
        if (to > from) std::fill_n(from, to - from, 0.0f);
    };
    const std::ptrdiff_t left = border.left * strides.pixel, width = shape.w * strides.pixel;
    float* const first = plane - strides.origin(border);  // of the plane with its border
    float* const inside = first + border.top * strides.row;
    if (begin == 0) fill(first, inside);
    for (int row = begin; row < end; ++row) {
        float* const start = inside + row * strides.row;
        fill(start, start + left);
        fill(start + left + width, start + strides.row);
    }
    if (end == shape.h) fill(inside + shape.h * strides.row, first + strides.plane);
}
