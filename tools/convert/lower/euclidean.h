// Euclidean norms, by nolk's l2normalize.
#pragma once

#include "convert/lower/Placed.h"

namespace convert {

// Keeps zeros from being divided by 0, and changes nothing else.
constexpr float kTinyAddend = 1e-18f;  // its square is a normal number

// x [1, c, h, w] divided by sqrt(addend^2 + sum over c of x^2): a channel of that constant takes part.
int l2normalized(Program& program, int x, float addend = kTinyAddend);

// The same along one axis of an ONNX tensor.
Placed normalisedAlong(Program& program, const Placed& x, std::size_t axis, float addend = kTinyAddend);

}  // namespace convert
