// Euclidean norms, by nolk's l2normalize.
#pragma once

#include "convert/lower/Placed.h"

namespace convert {

// x [1, c, h, w] divided by its norm over the channels. Zeros stay zeros: a channel of a tiny constant takes part.
int l2normalized(Program& program, int x);

// The same along one axis of an ONNX tensor.
Placed normalisedAlong(Program& program, const Placed& x, std::size_t axis);

}  // namespace convert
