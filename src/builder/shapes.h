// Arithmetic of shapes, for factories and layers.
#pragma once

#include <nolk.h>

// The number of elements: the product of the extents, or 0 if any extent is below 1, for example because a window is
// larger than its input. It is 0 for two negative extents too, although their product is positive. Wraps beyond 32
// bits: call isRepresentable first if the shape comes from outside.
int elementCount(const nolk::TensorShape& shape);

// Whether the element count fits 32 bits.
bool isRepresentable(const nolk::TensorShape& shape);

// All five fields are equal.
bool sameShape(const nolk::TensorShape& a, const nolk::TensorShape& b);

// Positions of a window: (paddedIn - window) / stride + 1, where window = (kernel - 1) * dilation + 1.
int windowPositions(int paddedIn, int window, int stride);
