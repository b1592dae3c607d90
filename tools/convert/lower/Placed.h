// Where the elements of an ONNX tensor are in a step's result: its axes, cut into factors, and the place of each factor
// in memory. Transposing and reshaping an ONNX tensor thereby only renames factors; elements move when an operation
// needs them in another order.
//   Placed x = placed(step, {1, 6, 4, 4});                          // in ONNX's own order
//   Placed y = *reshaped(x, {1, 2, 3, 4, 4});                       // 6 = 2 * 3: nothing moves
//   Placed z = permuted(y, {0, 2, 1, 3, 4});                        // nor here
//   int step = arranged(program, z, {{1}, {2}, {3, 4}});            // [n, 3, 2, 16]: a transpose is recorded
// Axes of extent 1 have no factors, so the batch axis, of extent 1 in a sample, is nowhere in the way.
#pragma once

#include <optional>
#include <vector>

#include "convert/lower/Program.h"
#include "convert/onnx/Array.h"

namespace convert {

struct Factor {
    std::int64_t extent = 1;  // above 1
    int place = 0;            // in memory, slowest first
};

struct Placed {
    int step = -1;
    std::vector<std::vector<Factor>> axes;  // slowest first

    Dims dims() const;
    std::size_t rank() const { return axes.size(); }
    std::vector<std::int64_t> memory() const;  // the factors' extents in memory's order
};

// The step's elements, dense in the order of dims.
Placed placed(int step, const Dims& dims);

// Under other dims, if factors can be cut so that every axis is made of whole ones.
std::optional<Placed> reshaped(const Placed& x, const Dims& dims);

// Under other dims; elements are moved into ONNX's order where that is needed.
Placed reshapedAlways(Program& program, const Placed& x, const Dims& dims);

// Axis i of the result is axis perm[i] of x.
Placed permuted(const Placed& x, const std::vector<int>& perm);

using Axes = std::vector<int>;

// A step [1, c, h, w] whose memory has the axes of groups in their order; every axis of x with more than one element
// stands in one of the (at most three) groups c, h and w, which come last: one group alone is w. dims is 3.
int arranged(Program& program, const Placed& x, const std::vector<Axes>& groups);

// The same tensor with its memory in ONNX's order, one factor an axis.
Placed inOrder(Program& program, const Placed& x);
bool isInOrder(const Placed& x);

// The same tensor with factors in the order of places: order[i] is the place that comes i-th.
Placed reordered(Program& program, const Placed& x, const std::vector<int>& order);

// Cuts factors so that the axis is made of factors with these extents; nothing when that cannot be.
std::optional<Placed> refined(const Placed& x, std::size_t axis, const std::vector<std::int64_t>& extents);

// x in its own order of memory with the ONNX axis alone along one axis of the step, so that what is done along it
// touches that axis alone. The factors of the axis are made neighbours first. The step's shape stays as it is where it
// serves, and is [1, before, axis, after] otherwise, or whenever rows are asked for. A result with the same other
// extents is put back by backAlong.
enum class LineForm { any, rows };
struct Along {
    int step = -1;
    nolk::Axis line = nolk::Axis::h;  // of the step
    Placed x;                         // with the ONNX axis as one factor
    std::size_t axis = 0;             // of ONNX
};
Along along(Program& program, const Placed& x, std::size_t axis, LineForm form = LineForm::any);
Placed backAlong(const Program& program, const Along& along, int step);

}  // namespace convert
