#include "convert/evaluate/Operator.h"

#include <algorithm>

namespace convert {

Values asFirstInput(const Call& call) { return {valueOf(call.in(0).type, call.dims(0))}; }

std::vector<std::int64_t> stridesOf(const Dims& dims) {
    std::vector<std::int64_t> strides(dims.size(), 1);
    for (std::size_t axis = dims.size(); axis-- > 1;) strides[axis - 1] = strides[axis] * dims[axis];
    return strides;
}

Dims broadcastDims(const Dims& a, const Dims& b) {
    const std::size_t rank = std::max(a.size(), b.size());
    const auto extent = [&](const Dims& dims, std::size_t axis) {
        return axis + dims.size() >= rank ? dims[axis + dims.size() - rank] : 1;
    };
    Dims result(rank);
    for (std::size_t axis = 0; axis < rank; ++axis) {
        const std::int64_t x = extent(a, axis), y = extent(b, axis);
        need(x == y || x == 1 || y == 1, describeDims(a) + " and " + describeDims(b) + " do not broadcast");
        result[axis] = x == 1 ? y : x;
    }
    return result;
}

std::vector<std::int64_t> broadcastSteps(const Dims& own, const Dims& dims) {
    const std::vector<std::int64_t> strides = stridesOf(own);
    std::vector<std::int64_t> steps(dims.size(), 0);
    for (std::size_t axis = 0; axis < own.size(); ++axis)
        if (own[axis] != 1) steps[axis + dims.size() - own.size()] = strides[axis];
    return steps;
}

namespace {

template <typename Element>
std::vector<Element> picked(const std::vector<Element>& source, const Dims& dims,
                            const std::vector<std::vector<std::int64_t>>& offsets, Element fill) {
    std::vector<Element> result;
    result.reserve(static_cast<std::size_t>(elementCount(dims)));
    if (dims.empty()) return source;
    const std::size_t last = dims.size() - 1;
    const Dims outer(dims.begin(), dims.end() - 1);
    Dims index(last, 0);
    for (std::int64_t line = elementCount(outer); line > 0; --line) {
        std::int64_t base = 0;
        for (std::size_t axis = 0; axis < last; ++axis) base += offsets[axis][static_cast<std::size_t>(index[axis])];
        for (const std::int64_t offset : offsets[last])
            result.push_back(base + offset < 0 ? fill : source[static_cast<std::size_t>(base + offset)]);
        for (std::size_t axis = last; axis-- > 0;) {
            if (++index[axis] < dims[axis]) break;
            index[axis] = 0;
        }
    }
    return result;
}

}  // namespace

Array pick(const Array& source, const Dims& dims, const std::vector<std::vector<std::int64_t>>& offsets, double fill) {
    if (source.isFloat())
        return {source.type(), dims, picked(source.floats(), dims, offsets, static_cast<float>(fill))};
    return {source.type(), dims, picked(source.ints(), dims, offsets, static_cast<std::int64_t>(fill))};
}

std::vector<std::vector<std::int64_t>> plainOffsets(const Dims& dims) {
    const std::vector<std::int64_t> strides = stridesOf(dims);
    std::vector<std::vector<std::int64_t>> offsets(dims.size());
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        for (std::int64_t i = 0; i < dims[axis]; ++i) offsets[axis].push_back(i * strides[axis]);
    return offsets;
}

}  // namespace convert
