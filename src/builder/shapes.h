// Arithmetic of shapes, for factories and layers.
#pragma once

#include <nolk.h>

// Number of elements: the product of the extents, or 0 when one of them is below 1, as where a window is larger than
// its input. Two negative extents do not make a full tensor: nothing was computed for it. Wraps beyond 32 bits: ask
// isRepresentable first where the shape comes from outside.
int elementCount(const nolk::TensorShape& shape);

// Whether the element count fits 32 bits.
bool isRepresentable(const nolk::TensorShape& shape);

// All five fields are equal.
bool sameShape(const nolk::TensorShape& a, const nolk::TensorShape& b);

// Positions of a window: (paddedIn - window) / stride + 1, where window = (kernel - 1) * dilation + 1.
int windowPositions(int paddedIn, int window, int stride);
