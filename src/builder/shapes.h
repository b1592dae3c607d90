// Arithmetic of shapes, for factories and layers.
#pragma once

#include <nolk.h>

// Number of elements. Wraps beyond 32 bits: ask isRepresentable first where the shape comes from outside.
int elementCount(const nolk::TensorShape& shape);

// No negative extent, and an element count that fits 32 bits.
bool isRepresentable(const nolk::TensorShape& shape);

// All five fields are equal.
bool sameShape(const nolk::TensorShape& a, const nolk::TensorShape& b);

// Positions of a window: (paddedIn - window) / stride + 1, where window = (kernel - 1) * dilation + 1.
int windowPositions(int paddedIn, int window, int stride);
