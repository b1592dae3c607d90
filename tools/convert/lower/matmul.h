// Products with a matrix of weights.
#pragma once

#include "convert/lower/NodeLowering.h"

namespace convert {

// A weight matrix [rows, columns]; its values stand in that order, or in the other one.
struct Matrix {
    Floats values;
    std::size_t rows = 0;
    std::size_t columns = 0;
    bool isTransposed = false;

    Floats inOrder() const;
    Floats transposed() const;
};

// x * matrix over the last axis of x, and a bias if there is one; the result has x's dims but for the last.
Placed product(Program& program, const Placed& x, const Matrix& matrix, const Floats& bias);

}  // namespace convert
