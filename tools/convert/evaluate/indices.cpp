// Operators that take elements by their indices: gathering, scattering, triangles, cumulative sums, and channels that
// become rows and columns.
#include <cstdint>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

using Offsets = std::vector<std::vector<std::int64_t>>;

// Gather and its like. Negative indices count from the end.

std::int64_t wrapIndex(std::int64_t index, std::int64_t extent) {
    need(index >= -extent && index < extent,
         "index " + std::to_string(index) + " is outside an extent of " + std::to_string(extent));
    return index < 0 ? index + extent : index;
}

Values gatherShapes(const Call& call) {
    const int axis = call.axis("axis", 0, call.rank(0));
    Dims dims(call.dims(0).begin(), call.dims(0).begin() + axis);
    dims.insert(dims.end(), call.dims(1).begin(), call.dims(1).end());
    dims.insert(dims.end(), call.dims(0).begin() + axis + 1, call.dims(0).end());
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeGather(const Call& call, const Values& results) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)));
    const Dims& own = call.dims(0);
    const std::int64_t stride = stridesOf(own)[axis];
    Offsets offsets = plainOffsets(own);
    offsets[axis].clear();
    for (const std::int64_t index : call.ints(1, "indices"))
        offsets[axis].push_back(wrapIndex(index, own[axis]) * stride);
    Dims dims = own;
    dims[axis] = static_cast<std::int64_t>(offsets[axis].size());
    return {pick(call.array(0), dims, offsets).withDims(results[0].dims)};
}

// The elements at a list of places.
Array elementsAt(const Array& source, const Dims& dims, const std::vector<std::int64_t>& places) {
    return pick(source, {static_cast<std::int64_t>(places.size())}, {places}).withDims(dims);
}

Values gatherElementsShapes(const Call& call) {
    need(call.rank(0) == call.rank(1), "indices of shape " + describeDims(call.dims(1)));
    const auto axis = static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)));
    for (std::size_t i = 0; i < call.dims(0).size(); ++i)
        need(i == axis || call.dims(1)[i] <= call.dims(0)[i], "indices of shape " + describeDims(call.dims(1)));
    return {valueOf(call.in(0).type, call.dims(1))};
}

// The places in the first input that the indices of the second mean, each in its own line along the axis.
std::vector<std::int64_t> elementPlaces(const Call& call) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)));
    const std::vector<std::int64_t> strides = stridesOf(call.dims(0));
    std::vector<std::int64_t> steps = strides, places;
    steps[axis] = 0;
    const std::vector<std::int64_t>& indices = call.ints(1, "indices");
    forEachOffset(call.dims(1), steps, [&](std::int64_t offset) {
        places.push_back(offset + wrapIndex(indices[places.size()], call.dims(0)[axis]) * strides[axis]);
    });
    return places;
}

Arrays computeGatherElements(const Call& call, const Values& results) {
    return {elementsAt(call.array(0), results[0].dims, elementPlaces(call))};
}

Values gatherNdShapes(const Call& call) {
    const std::int64_t batch = call.intAttribute("batch_dims", 0), rank = call.rank(0);
    need(call.rank(1) >= 1 && batch >= 0 && batch < call.rank(1), "indices of shape " + describeDims(call.dims(1)));
    const std::int64_t taken = call.dims(1).back();
    need(taken >= 1 && batch + taken <= rank, "indices of shape " + describeDims(call.dims(1)));
    for (std::int64_t i = 0; i < batch; ++i)
        need(call.dims(0)[static_cast<std::size_t>(i)] == call.dims(1)[static_cast<std::size_t>(i)],
             "indices of shape " + describeDims(call.dims(1)));
    Dims dims(call.dims(1).begin(), call.dims(1).end() - 1);
    dims.insert(dims.end(), call.dims(0).begin() + batch + taken, call.dims(0).end());
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeGatherNd(const Call& call, const Values& results) {
    const auto batch = static_cast<std::ptrdiff_t>(call.intAttribute("batch_dims", 0));
    const auto taken = static_cast<std::ptrdiff_t>(call.dims(1).back());
    const Dims& own = call.dims(0);
    const std::vector<std::int64_t> strides = stridesOf(own);
    const std::int64_t samples = elementCount(Dims(own.begin(), own.begin() + batch));
    const std::int64_t sample = elementCount(Dims(own.begin() + batch, own.end()));
    const std::int64_t part = elementCount(Dims(own.begin() + batch + taken, own.end()));
    const std::vector<std::int64_t>& indices = call.ints(1, "indices");
    const std::int64_t lines = static_cast<std::int64_t>(indices.size()) / taken;
    std::vector<std::int64_t> places;
    for (std::int64_t line = 0; line < lines; ++line) {
        std::int64_t begin = line / (lines / samples) * sample;
        for (std::ptrdiff_t i = 0; i < taken; ++i)
            begin += wrapIndex(indices[static_cast<std::size_t>(line * taken + i)],
                               own[static_cast<std::size_t>(batch + i)]) *
                     strides[static_cast<std::size_t>(batch + i)];
        for (std::int64_t i = 0; i < part; ++i) places.push_back(begin + i);
    }
    return {elementsAt(call.array(0), results[0].dims, places)};
}

// Copies of a tensor in which updates replace elements.

void needPlainScatter(const Call& call) {
    const std::string reduction = call.stringAttribute("reduction", "none");
    need(reduction == "none", "reduction " + inQuotes(reduction) + " is not supported");
}

// Puts runs of `part` updates behind each other to the places.
Array replaced(const Call& call, const std::vector<std::int64_t>& places, std::int64_t part) {
    const Array &data = call.array(0), &updates = call.array(2);
    const auto put = [&](auto values, const auto& from) {
        for (std::size_t i = 0; i < places.size(); ++i)
            std::copy_n(from.begin() + static_cast<std::int64_t>(i) * part, part, values.begin() + places[i]);
        return Array(data.type(), data.dims(), std::move(values));
    };
    return data.isFloat() ? put(data.floats(), updates.floats()) : put(data.ints(), updates.ints());
}

Values scatterNdShapes(const Call& call) {
    needPlainScatter(call);
    need(call.rank(1) >= 1 && call.dims(1).back() >= 1 && call.dims(1).back() <= call.rank(0),
         "indices of shape " + describeDims(call.dims(1)));
    Dims updates(call.dims(1).begin(), call.dims(1).end() - 1);
    updates.insert(updates.end(), call.dims(0).begin() + call.dims(1).back(), call.dims(0).end());
    need(call.dims(2) == updates, "updates of shape " + describeDims(call.dims(2)));
    return asFirstInput(call);
}

Arrays computeScatterNd(const Call& call, const Values&) {
    const Dims& own = call.dims(0);
    const std::vector<std::int64_t> strides = stridesOf(own), &indices = call.ints(1, "indices");
    const auto taken = static_cast<std::size_t>(call.dims(1).back());
    std::vector<std::int64_t> places;
    for (std::size_t line = 0; line < indices.size(); line += taken) {
        std::int64_t place = 0;
        for (std::size_t i = 0; i < taken; ++i) place += wrapIndex(indices[line + i], own[i]) * strides[i];
        places.push_back(place);
    }
    const auto from = own.begin() + static_cast<std::ptrdiff_t>(taken);
    return {replaced(call, places, elementCount(Dims(from, own.end())))};
}

Values scatterElementsShapes(const Call& call) {
    needPlainScatter(call);
    call.axis("axis", 0, call.rank(0));
    need(call.dims(2) == call.dims(1), "updates of shape " + describeDims(call.dims(2)));
    gatherElementsShapes(call);
    return asFirstInput(call);
}

Arrays computeScatterElements(const Call& call, const Values&) { return {replaced(call, elementPlaces(call), 1)}; }

// Channels to rows and columns, and back.

struct Blocks {
    std::int64_t n, c, h, w, size;
};
Blocks blocksOf(const Call& call) {
    need(call.rank(0) == 4, "input of shape " + describeDims(call.dims(0)) + ", instead of 4 dimensions");
    const Dims& d = call.dims(0);
    const std::int64_t size = call.intAttribute("blocksize", 0);
    need(size >= 1 && size < (1 << 15), "blocksize " + std::to_string(size) + " is not possible", kAgainstOnnx);
    return {d[0], d[1], d[2], d[3], size};
}

Values depthToSpaceShapes(const Call& call) {
    const Blocks b = blocksOf(call);
    need(b.c % (b.size * b.size) == 0, "blocksize does not divide the channels");
    return {valueOf(call.in(0).type, {b.n, b.c / (b.size * b.size), b.h * b.size, b.w * b.size})};
}

Arrays computeDepthToSpace(const Call& call, const Values& results) {
    const Blocks b = blocksOf(call);
    const std::string mode = call.stringAttribute("mode", "DCR");
    need(mode == "DCR" || mode == "CRD", "mode " + inQuotes(mode) + " is not known");
    const std::int64_t channels = results[0].dims[1], squared = b.size * b.size;
    std::vector<std::int64_t> places;
    for (std::int64_t n = 0; n < b.n; ++n)
        for (std::int64_t c = 0; c < channels; ++c)
            for (std::int64_t y = 0; y < b.h * b.size; ++y)
                for (std::int64_t x = 0; x < b.w * b.size; ++x) {
                    const std::int64_t block = y % b.size * b.size + x % b.size;
                    const std::int64_t channel = mode == "DCR" ? block * channels + c : c * squared + block;
                    places.push_back(((n * b.c + channel) * b.h + y / b.size) * b.w + x / b.size);
                }
    return {elementsAt(call.array(0), results[0].dims, places)};
}

Values spaceToDepthShapes(const Call& call) {
    const Blocks b = blocksOf(call);
    need(b.h % b.size == 0 && b.w % b.size == 0, "blocksize does not divide rows and columns");
    return {valueOf(call.in(0).type, {b.n, b.c * b.size * b.size, b.h / b.size, b.w / b.size})};
}

Arrays computeSpaceToDepth(const Call& call, const Values& results) {
    const Blocks b = blocksOf(call);
    std::vector<std::int64_t> places;
    for (std::int64_t n = 0; n < b.n; ++n)
        for (std::int64_t channel = 0; channel < results[0].dims[1]; ++channel)
            for (std::int64_t y = 0; y < b.h / b.size; ++y)
                for (std::int64_t x = 0; x < b.w / b.size; ++x) {
                    const std::int64_t block = channel / b.c, c = channel % b.c;
                    places.push_back(((n * b.c + c) * b.h + y * b.size + block / b.size) * b.w + x * b.size +
                                     block % b.size);
                }
    return {elementsAt(call.array(0), results[0].dims, places)};
}

// Indices of what is not zero; their number depends on the values.

std::vector<std::int64_t> placesOfNonZeros(const Array& array) {
    std::vector<std::int64_t> places;
    for (std::int64_t i = 0; i < array.count(); ++i) {
        const auto at = static_cast<std::size_t>(i);
        if (array.isFloat() ? array.floats()[at] != 0 : array.ints()[at] != 0) places.push_back(i);
    }
    return places;
}

Values nonZeroShapes(const Call& call) {
    const auto count = static_cast<std::int64_t>(placesOfNonZeros(call.array(0, "X")).size());
    return {valueOf(onnx::TensorProto::INT64, {call.rank(0), count})};
}

Arrays computeNonZero(const Call& call, const Values& results) {
    const std::vector<std::int64_t> places = placesOfNonZeros(call.array(0)), strides = stridesOf(call.dims(0));
    std::vector<std::int64_t> values;
    for (std::size_t axis = 0; axis < strides.size(); ++axis)
        for (const std::int64_t place : places) values.push_back(place / strides[axis] % call.dims(0)[axis]);
    return {{results[0].type, results[0].dims, std::move(values)}};
}

// One triangle of matrices, zeros elsewhere.
Values triluShapes(const Call& call) {
    need(call.rank(0) >= 2, "expects matrices");
    if (call.has(1)) call.scalar(1, "k");
    return asFirstInput(call);
}

Arrays computeTrilu(const Call& call, const Values& results) {
    const Dims& dims = results[0].dims;
    const double k = call.has(1) ? call.scalar(1, "k") : 0;
    const bool upper = call.intAttribute("upper", 1) != 0;
    const std::int64_t rows = dims[dims.size() - 2], columns = dims.back();
    std::vector<std::int64_t> places;
    for (std::int64_t i = 0; i < elementCount(dims); ++i) {
        const auto diagonal = static_cast<double>(i % columns - i / columns % rows);
        places.push_back((upper ? diagonal >= k : diagonal <= k) ? i : kFill);
    }
    return {elementsAt(call.array(0), dims, places)};
}

Values cumSumShapes(const Call& call) {
    wrapAxis(static_cast<std::int64_t>(call.scalar(1, "axis")), call.rank(0));
    return asFirstInput(call);
}

Arrays computeCumSum(const Call& call, const Values& results) {
    const Array& input = call.array(0);
    const auto axis =
        static_cast<std::size_t>(wrapAxis(static_cast<std::int64_t>(call.scalar(1, "axis")), call.rank(0)));
    const bool exclusive = call.intAttribute("exclusive", 0) != 0, reverse = call.intAttribute("reverse", 0) != 0;
    const std::int64_t extent = input.dims()[axis], stride = stridesOf(input.dims())[axis];
    std::vector<double> sums(static_cast<std::size_t>(input.count()));
    Dims starts = input.dims();
    starts[axis] = 1;
    forEachOffset(starts, stridesOf(input.dims()), [&](std::int64_t offset) {
        double sum = 0;
        for (std::int64_t i = 0; i < extent; ++i) {
            const auto at = static_cast<std::size_t>(offset + (reverse ? extent - 1 - i : i) * stride);
            const double x = input.isFloat() ? input.floats()[at] : static_cast<double>(input.ints()[at]);
            sums[at] = exclusive ? sum : sum + x;
            sum += x;
        }
    });
    if (input.isFloat()) return {{results[0].type, results[0].dims, std::vector<float>(sums.begin(), sums.end())}};
    return {{results[0].type, results[0].dims, std::vector<std::int64_t>(sums.begin(), sums.end())}};
}

}  // namespace

const std::vector<Operator>& indexOperators() {
    static const std::vector<Operator> rows = {
        {"CumSum", cumSumShapes, computeCumSum},
        {"DepthToSpace", depthToSpaceShapes, computeDepthToSpace},
        {"Gather", gatherShapes, computeGather},
        {"GatherElements", gatherElementsShapes, computeGatherElements},
        {"GatherND", gatherNdShapes, computeGatherNd},
        {"NonZero", nonZeroShapes, computeNonZero},
        {"Scatter", scatterElementsShapes, computeScatterElements},
        {"ScatterElements", scatterElementsShapes, computeScatterElements},
        {"ScatterND", scatterNdShapes, computeScatterNd},
        {"SpaceToDepth", spaceToDepthShapes, computeSpaceToDepth},
        {"Trilu", triluShapes, computeTrilu},
    };
    return rows;
}

}  // namespace convert
