// Elements taken along one axis of a tensor.
#pragma once

#include "convert/lower/Placed.h"

namespace convert {

// count elements from start; step may be negative.
Placed taken(Program& program, const Placed& x, std::size_t axis, std::int64_t start, std::int64_t count,
             std::int64_t step);

// The elements with these indices, in their order.
Placed gathered(Program& program, const Placed& x, std::size_t axis, const std::vector<std::int64_t>& indices);

// y[i] = sum over k of matrix[i, k] * x[k] along the axis; matrix [rows, extent].
Placed mapped(Program& program, const Placed& x, std::size_t axis, std::vector<float> matrix, int rows);

}  // namespace convert
