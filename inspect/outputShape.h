// Computes the shapes of operations' results as nolk.h states them. It does not use the library's own code for this, so
// that a comparison of the two finds mistakes in either.
#pragma once

#include <vector>

#include "model/Operation.h"

// The shape of the call's result for inputs of these shapes; an operation with inputs needs at least one. If an axis
// does not exist, the result is the first input's shape.
nolk::TensorShape outputShape(const Call& call, const std::vector<nolk::TensorShape>& inputs);
