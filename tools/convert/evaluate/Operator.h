// What the families of operators have in common: a row of their tables, and the walk over elements.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "convert/evaluate/Call.h"

namespace convert {

using Values = std::vector<Value>;
using Arrays = std::vector<Array>;

// shapes gives one value for each output, without values. compute is called with all inputs known, and with what shapes
// has given; it returns as many arrays.
struct Operator {
    const char* name;
    Values (*shapes)(const Call& call);
    Arrays (*compute)(const Call& call, const Values& results);
};

// The tables, one for each file.
const std::vector<Operator>& convolutionOperators();
const std::vector<Operator>& elementOperators();
const std::vector<Operator>& indexOperators();
const std::vector<Operator>& matrixOperators();
const std::vector<Operator>& normalizationOperators();
const std::vector<Operator>& poolingOperators();
const std::vector<Operator>& recurrentOperators();
const std::vector<Operator>& reductionOperators();
const std::vector<Operator>& resizeOperators();
const std::vector<Operator>& shapeOperators();
const std::vector<Operator>& sliceOperators();
const std::vector<Operator>& unaryOperators();
const std::vector<Operator>& unconvertedOperators();

// A value whose elements are not known.
inline Value valueOf(int type, Dims dims) { return {type, std::move(dims), nullptr}; }

// The shape rule of an operator whose result is as its first input.
Values asFirstInput(const Call& call);

// Distances between neighbours along each axis, in elements.
std::vector<std::int64_t> stridesOf(const Dims& dims);

// The dims that two tensors broadcast to. Throws where they do not.
Dims broadcastDims(const Dims& a, const Dims& b);

// Calls use(offset) for the elements of dims in order; the offset is the sum of steps[axis] * index along each axis.
template <typename Use>
void forEachOffset(const Dims& dims, const std::vector<std::int64_t>& steps, Use&& use) {
    const std::int64_t count = elementCount(dims);
    Dims index(dims.size(), 0);
    std::int64_t offset = 0;
    for (std::int64_t i = 0; i < count; ++i) {
        use(offset);
        for (std::size_t axis = dims.size(); axis-- > 0;) {
            offset += steps[axis];
            if (++index[axis] < dims[axis]) break;
            offset -= steps[axis] * dims[axis];
            index[axis] = 0;
        }
    }
}

// Steps for forEachOffset over `dims` that walk a tensor of dims `own` which is broadcast to them.
std::vector<std::int64_t> broadcastSteps(const Dims& own, const Dims& dims);

// The elements of source, an array of `dims`: element [i, j, ...] is that at offsets[0][i] + offsets[1][j] + ...; one
// negative offset makes it `fill`. There are as many lists as dims.
constexpr std::int64_t kFill = INT64_MIN / 64;
Array pick(const Array& source, const Dims& dims, const std::vector<std::vector<std::int64_t>>& offsets,
           double fill = 0);

// The offsets for pick that take a tensor of these dims as it is.
std::vector<std::vector<std::int64_t>> plainOffsets(const Dims& dims);

}  // namespace convert
