// Shapes of operations' results: the arithmetic that nolk.h states, by itself, so that a mistake in the library's own
// shows.
#pragma once

#include <vector>

#include "model/Operation.h"

// The shape of the call's result, of inputs of these shapes, one at least where the operation takes any. An axis that
// does not exist leaves the first input's shape.
nolk::TensorShape outputShape(const Call& call, const std::vector<nolk::TensorShape>& inputs);
