// Operators that take whole ranges along axes: transpositions, slices, joins, repetition, padding.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

using Offsets = std::vector<std::vector<std::int64_t>>;

// Transpose.

std::vector<std::size_t> permutationOf(const Call& call) {
    const std::size_t rank = call.dims(0).size();
    const auto said = call.intsAttribute("perm");
    std::vector<std::size_t> perm;
    std::vector<bool> seen(rank, false);
    for (std::size_t i = 0; i < rank; ++i) perm.push_back(rank - 1 - i);
    if (!said) return perm;
    need(said->size() == rank, "perm has " + std::to_string(said->size()) + " values for " + describeDims(call.dims(0)),
         kAgainstOnnx);
    for (std::size_t i = 0; i < rank; ++i) {
        perm[i] = static_cast<std::size_t>(wrapAxis((*said)[i], static_cast<int>(rank)));
        need(!seen[perm[i]], "perm names axis " + std::to_string(perm[i]) + " twice", kAgainstOnnx);
        seen[perm[i]] = true;
    }
    return perm;
}

Values transposeShapes(const Call& call) {
    Dims dims;
    for (const std::size_t axis : permutationOf(call)) dims.push_back(call.dims(0)[axis]);
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeTranspose(const Call& call, const Values& results) {
    const Offsets plain = plainOffsets(call.dims(0));
    Offsets offsets;
    for (const std::size_t axis : permutationOf(call)) offsets.push_back(plain[axis]);
    return {pick(call.array(0), results[0].dims, offsets)};
}

// Slice: attributes before opset 10, inputs from then on.

struct Steps {
    std::int64_t start = 0, step = 1, count = 0;
};

std::int64_t clampedPlace(std::int64_t place, std::int64_t extent, std::int64_t low, std::int64_t high) {
    return std::clamp(place < 0 ? place + extent : place, low, high);
}

Steps stepsOf(std::int64_t start, std::int64_t end, std::int64_t step, std::int64_t extent) {
    need(step != 0 && step > std::numeric_limits<std::int64_t>::min() / 2, "a step is not possible", kAgainstOnnx);
    if (extent == 0) return {0, step, 0};
    Steps steps{0, step, 0};
    steps.start = step > 0 ? clampedPlace(start, extent, 0, extent) : clampedPlace(start, extent, 0, extent - 1);
    end = step > 0 ? clampedPlace(end, extent, 0, extent) : clampedPlace(end, extent, -1, extent - 1);
    const std::int64_t length = step > 0 ? end - steps.start : steps.start - end;
    const std::int64_t size = step > 0 ? step : -step;
    steps.count = length <= 0 ? 0 : (length - 1) / size + 1;
    return steps;
}

std::vector<Steps> slicesOf(const Call& call) {
    const bool isOld = call.opset < 10;
    const auto list = [&](const char* name, std::size_t input) {
        return isOld             ? call.intsAttribute(name)
               : call.has(input) ? std::optional(call.ints(input, name))
                                 : std::nullopt;
    };
    const auto starts = list("starts", 1), ends = list("ends", 2), axes = list("axes", 3);
    const auto steps = isOld ? std::nullopt : list("steps", 4);
    need(starts && ends && starts->size() == ends->size() && (!axes || axes->size() == starts->size()) &&
             (!steps || steps->size() == starts->size()),
         "starts, ends, axes and steps do not agree", kAgainstOnnx);
    std::vector<Steps> slices;
    for (const std::int64_t extent : call.dims(0)) slices.push_back({0, 1, extent});
    for (std::size_t i = 0; i < starts->size(); ++i) {
        const int axis = wrapAxis(axes ? (*axes)[i] : static_cast<std::int64_t>(i), call.rank(0));
        slices[static_cast<std::size_t>(axis)] =
            stepsOf((*starts)[i], (*ends)[i], steps ? (*steps)[i] : 1, call.dims(0)[static_cast<std::size_t>(axis)]);
    }
    return slices;
}

Values sliceShapes(const Call& call) {
    Dims dims;
    for (const Steps& steps : slicesOf(call)) dims.push_back(steps.count);
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeSlice(const Call& call, const Values& results) {
    const std::vector<Steps> slices = slicesOf(call);
    const std::vector<std::int64_t> strides = stridesOf(call.dims(0));
    Offsets offsets(slices.size());
    for (std::size_t axis = 0; axis < slices.size(); ++axis)
        for (std::int64_t i = 0; i < slices[axis].count; ++i)
            offsets[axis].push_back((slices[axis].start + i * slices[axis].step) * strides[axis]);
    return {pick(call.array(0), results[0].dims, offsets)};
}

// Split: sizes are an attribute before opset 13; num_outputs came with opset 18.

std::vector<std::int64_t> splitSizes(const Call& call, std::size_t axis) {
    const std::int64_t extent = call.dims(0)[axis];
    const auto outputs = static_cast<std::int64_t>(call.outputCount());
    need(outputs > 0, "has no outputs", kAgainstOnnx);
    if (const auto sizes = call.intsOf("split", 1); sizes && !sizes->empty()) {
        std::int64_t sum = 0;
        for (const std::int64_t size : *sizes) {
            need(size >= 0 && size <= extent, "split " + describeDims(*sizes) + " is not possible");
            sum += size;
        }
        need(sum == extent && static_cast<std::int64_t>(sizes->size()) == outputs,
             "split " + describeDims(*sizes) + " does not fit an extent of " + std::to_string(extent));
        return *sizes;
    }
    const std::int64_t size = (extent + outputs - 1) / outputs;
    need(extent % outputs == 0 || call.opset >= 18,
         "an extent of " + std::to_string(extent) + " has no " + std::to_string(outputs) + " equal parts");
    std::vector<std::int64_t> sizes(static_cast<std::size_t>(outputs), size);
    sizes.back() = extent - size * (outputs - 1);
    need(sizes.back() >= 0, "an extent of " + std::to_string(extent) + " has too few elements");
    return sizes;
}

Values splitShapes(const Call& call) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)));
    Values results;
    for (const std::int64_t size : splitSizes(call, axis)) {
        Dims dims = call.dims(0);
        dims[axis] = size;
        results.push_back(valueOf(call.in(0).type, std::move(dims)));
    }
    return results;
}

Arrays computeSplit(const Call& call, const Values& results) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)));
    const Offsets plain = plainOffsets(call.dims(0));
    Arrays arrays;
    auto begin = plain[axis].begin();
    for (const Value& result : results) {
        Offsets offsets = plain;
        offsets[axis].assign(begin, begin + result.dims[axis]);
        begin += result.dims[axis];
        arrays.push_back(pick(call.array(0), result.dims, offsets));
    }
    return arrays;
}

// Concat.

Values concatShapes(const Call& call) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 1, call.rank(0)));
    Dims dims = call.dims(0);
    for (std::size_t i = 1; i < call.inputCount(); ++i) {
        const Dims& next = call.dims(i);
        bool fits = next.size() == dims.size();
        for (std::size_t k = 0; fits && k < dims.size(); ++k) fits = k == axis || next[k] == dims[k];
        need(fits, describeDims(call.dims(0)) + " and " + describeDims(next) + " cannot be joined along axis " +
                       std::to_string(axis));
        dims[axis] += next[axis];
        elementCount(dims);
    }
    return {valueOf(call.in(0).type, std::move(dims))};
}

template <typename Element, typename Get>
std::vector<Element> joined(const Call& call, std::size_t axis, Get&& valuesOf) {
    std::vector<Element> result;
    const Dims& first = call.dims(0);
    const std::int64_t outer = elementCount(Dims(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(axis)));
    for (std::int64_t o = 0; o < outer; ++o)
        for (std::size_t i = 0; i < call.inputCount(); ++i) {
            const std::vector<Element>& values = valuesOf(call.array(i));
            const std::int64_t part = static_cast<std::int64_t>(values.size()) / outer;
            result.insert(result.end(), values.begin() + o * part, values.begin() + (o + 1) * part);
        }
    return result;
}

Arrays computeConcat(const Call& call, const Values& results) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 1, call.rank(0)));
    const Value& result = results[0];
    if (isFloatType(result.type))
        return {{result.type, result.dims,
                 joined<float>(call, axis, [](const Array& a) -> const std::vector<float>& { return a.floats(); })}};
    return {{result.type, result.dims,
             joined<std::int64_t>(call, axis, [](const Array& a) -> const Dims& { return a.ints(); })}};
}

// Expand, Tile.

Values expandShapes(const Call& call) {
    return {valueOf(call.in(0).type, broadcastDims(call.dims(0), call.ints(1, "shape")))};
}

Arrays computeExpand(const Call& call, const Values& results) {
    const Dims& dims = results[0].dims;
    const std::vector<std::int64_t> steps = broadcastSteps(call.dims(0), dims);
    Offsets offsets(dims.size());
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        for (std::int64_t i = 0; i < dims[axis]; ++i) offsets[axis].push_back(i * steps[axis]);
    return {pick(call.array(0), dims, offsets)};
}

Values tileShapes(const Call& call) {
    const std::vector<std::int64_t>& repeats = call.ints(1, "repeats");
    need(repeats.size() == call.dims(0).size(),
         "repeats has " + std::to_string(repeats.size()) + " values for " + describeDims(call.dims(0)));
    Dims dims = call.dims(0);
    for (std::size_t axis = 0; axis < dims.size(); ++axis) dims[axis] = elementCount({dims[axis], repeats[axis]});
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeTile(const Call& call, const Values& results) {
    const Dims &own = call.dims(0), &dims = results[0].dims;
    const std::vector<std::int64_t> strides = stridesOf(own);
    Offsets offsets(dims.size());
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        for (std::int64_t i = 0; i < dims[axis]; ++i) offsets[axis].push_back(i % own[axis] * strides[axis]);
    return {pick(call.array(0), dims, offsets)};
}

// Pad: amounts are an attribute before opset 11; axes came with opset 18. Negative amounts cut off.

struct Padded {
    std::vector<std::int64_t> begin, end;
};

Padded paddingOf(const Call& call) {
    const auto pads = call.opset < 11 ? call.intsAttribute("pads") : std::optional(call.ints(1, "pads"));
    const std::size_t rank = call.dims(0).size();
    std::vector<std::int64_t> axes;
    for (std::size_t axis = 0; axis < rank; ++axis) axes.push_back(static_cast<std::int64_t>(axis));
    if (call.has(3)) axes = call.ints(3, "axes");
    need(pads && pads->size() == 2 * axes.size(), "pads has the wrong number of values");
    Padded padded{std::vector<std::int64_t>(rank, 0), std::vector<std::int64_t>(rank, 0)};
    for (std::size_t i = 0; i < axes.size(); ++i) {
        const auto axis = static_cast<std::size_t>(wrapAxis(axes[i], static_cast<int>(rank)));
        padded.begin[axis] = (*pads)[i];
        padded.end[axis] = (*pads)[i + axes.size()];
        constexpr std::int64_t kMost = 1 << 30;
        need(std::abs(padded.begin[axis]) <= kMost && std::abs(padded.end[axis]) <= kMost, "pads are not possible");
    }
    return padded;
}

double paddingValue(const Call& call) {
    if (call.opset < 11) return call.floatAttribute("value", 0);
    return call.has(2) && elementCount(call.dims(2)) != 0 ? call.scalar(2, "constant_value") : 0;
}

Values padShapes(const Call& call) {
    const Padded padded = paddingOf(call);
    paddingValue(call);
    const std::string mode = call.stringAttribute("mode", "constant");
    need(mode == "constant" || mode == "edge" || mode == "reflect" || mode == "wrap",
         "mode " + inQuotes(mode) + " is not known");
    Dims dims = call.dims(0);
    for (std::size_t axis = 0; axis < dims.size(); ++axis) {
        dims[axis] += padded.begin[axis] + padded.end[axis];
        need(dims[axis] >= 0, "cuts more off than there is");
    }
    return {valueOf(call.in(0).type, std::move(dims))};
}

// The index that stands in for one outside [0, extent); -1 for the constant.
std::int64_t paddedIndex(std::int64_t index, std::int64_t extent, const std::string& mode) {
    if (index >= 0 && index < extent) return index;
    if (mode == "constant") return -1;
    need(extent > 0, "pads a dimension without elements");
    if (mode == "edge") return index < 0 ? 0 : extent - 1;
    if (mode == "wrap") return ((index % extent) + extent) % extent;
    const std::int64_t period = std::max<std::int64_t>(2 * (extent - 1), 1);
    const std::int64_t place = ((index % period) + period) % period;
    return place < extent ? place : period - place;
}

Arrays computePad(const Call& call, const Values& results) {
    const Padded padded = paddingOf(call);
    const Dims &own = call.dims(0), &dims = results[0].dims;
    const std::string mode = call.stringAttribute("mode", "constant");
    const std::vector<std::int64_t> strides = stridesOf(own);
    Offsets offsets(dims.size());
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        for (std::int64_t i = 0; i < dims[axis]; ++i) {
            const std::int64_t index = paddedIndex(i - padded.begin[axis], own[axis], mode);
            offsets[axis].push_back(index < 0 ? kFill : index * strides[axis]);
        }
    return {pick(call.array(0), dims, offsets, paddingValue(call))};
}

}  // namespace

const std::vector<Operator>& sliceOperators() {
    static const std::vector<Operator> rows = {
        {"Concat", concatShapes, computeConcat},
        {"Expand", expandShapes, computeExpand},
        {"Pad", padShapes, computePad},
        {"Slice", sliceShapes, computeSlice},
        {"Split", splitShapes, computeSplit},
        {"Tile", tileShapes, computeTile},
        {"Transpose", transposeShapes, computeTranspose},
    };
    return rows;
}

}  // namespace convert
