// The equation of an Einsum node: which label each axis of its inputs and of its result has.
//   Einsum e = einsumOf("bid,bjd->bij", {{1, 5, 4}, {1, 6, 4}});
//   e.operands[1]    // {0, 3, 2}: labels are numbers
//   e.result         // {0, 1, 3}
//   e.extents        // {1, 5, 4, 6}, by label
// An ellipsis stands for labels of its own, counted from the last axis, along which an extent of 1 is repeated.
#pragma once

#include <string>
#include <vector>

#include "convert/onnx/Array.h"

namespace convert {

struct Einsum {
    std::vector<std::vector<int>> operands;
    std::vector<int> result;
    Dims extents;

    Dims resultDims() const;
};

// Throws OnnxError for an equation that is none, or that does not fit the inputs.
Einsum einsumOf(const std::string& equation, const std::vector<Dims>& inputs);

}  // namespace convert
