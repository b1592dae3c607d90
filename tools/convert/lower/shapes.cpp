// Operators that move elements or only name them otherwise.
#include <algorithm>
#include <numeric>

#include "convert/lower/alongAxis.h"
#include "convert/lower/broadcast.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

std::int64_t countOf(const Dims& dims) {
    return std::accumulate(dims.begin(), dims.end(), std::int64_t{1}, std::multiplies<>());
}

// Axes with more than one element, in memory's order of their first factors.
std::vector<int> axesInMemory(const Placed& x) {
    std::vector<std::pair<int, int>> places;
    for (std::size_t i = 0; i < x.rank(); ++i)
        if (!x.axes[i].empty()) places.emplace_back(x.axes[i].front().place, static_cast<int>(i));
    std::sort(places.begin(), places.end());
    std::vector<int> axes;
    for (const auto& place : places) axes.push_back(place.second);
    return axes;
}

// Whether every axis is one run of memory, so that an order of axes tells the order of elements.
bool hasWholeAxes(const Placed& x) {
    for (const auto& axis : x.axes)
        for (std::size_t i = 1; i < axis.size(); ++i)
            if (axis[i].place != axis[i - 1].place + 1) return false;
    return true;
}

// A step of [1, before, extent, after] in the shape of another one, but for the extent along the line.
int inForm(Program& program, int step, const nolk::TensorShape& shape, nolk::Axis line, int extent) {
    return program.view(step, withExtent(shape, line, extent));
}

// before, axis, after: what stands before and behind the axis in memory's order.
std::vector<Axes> groupsAround(const std::vector<int>& order, int axis, std::size_t rank) {
    std::vector<Axes> groups(3);
    std::size_t group = 0;
    std::vector<char> isListed(rank, 0);
    for (const int a : order) {
        isListed[static_cast<std::size_t>(a)] = 1;
        if (a == axis) {
            groups[1] = {axis};
            group = 2;
        } else {
            groups[group].push_back(a);
        }
    }
    if (isListed[static_cast<std::size_t>(axis)] == 0) groups[1] = {axis};
    return groups;
}

std::vector<std::int64_t> attributeOrInput(const NodeLowering& n, const char* name, std::size_t input) {
    return n.has(input) ? n.integers(input, name) : n.integerList(name);
}

// The value that Pad writes.
float padValue(const NodeLowering& n) {
    if (n.has(2)) {
        const Floats values = n.floats(2, "the padding's value");
        return values->empty() ? 0.0f : values->front();
    }
    return n.number("value", 0.0f);
}

// Indices that Pad copies from: reflect, or edge.
std::vector<std::int64_t> paddedIndices(const Program& program, std::int64_t extent, std::int64_t before,
                                        std::int64_t behind, const std::string& mode) {
    program.requireFloats(2 * (before + extent + behind));  // an index is as large as two floats
    const std::int64_t period = std::max<std::int64_t>(2 * (extent - 1), 1);
    std::vector<std::int64_t> indices;
    for (std::int64_t i = -before; i < extent + behind; ++i) {
        std::int64_t at = i;
        if (mode == "edge") at = std::clamp<std::int64_t>(i, 0, extent - 1);
        if (mode == "wrap") at = ((i % extent) + extent) % extent;
        if (mode == "reflect") {
            at = ((i % period) + period) % period;
            at = std::min(at, period - at);
        }
        indices.push_back(at);
    }
    return indices;
}

int filled(Program& program, nolk::TensorShape shape, float value) {
    // Repeated from one element: a file holds no array of equal numbers.
    const int rows = program.resize(program.scalar(value), shape.c, shape.h * shape.w, nolk::ResizeMode::nearest,
                                    nolk::ResizeTransMode::halfPixel);
    return program.view(rows, shape);
}

Placed paddedAlong(NodeLowering& n, const Placed& x, std::size_t axis, int before, int behind, float value) {
    const Along lines = along(n.program, x, axis, LineForm::rows);
    constexpr int kMost = 255;  // a padding is a byte in the file
    constexpr int kMostPads = 8;
    if (value == 0.0f && std::max(before, behind) <= kMostPads * kMost) {
        int step = lines.step;
        while (before > 0 || behind > 0) {
            const int top = std::min(before, kMost), bottom = std::min(behind, kMost);
            step = n.program.pad(step, {top, bottom, 0, 0});
            before -= top;
            behind -= bottom;
        }
        return backAlong(n.program, lines, step);
    }
    const nolk::TensorShape shape = n.program.shapeOf(lines.step);
    std::vector<int> parts;
    if (before > 0) parts.push_back(filled(n.program, withExtent(shape, nolk::Axis::h, before), value));
    parts.push_back(lines.step);
    if (behind > 0) parts.push_back(filled(n.program, withExtent(shape, nolk::Axis::h, behind), value));
    return backAlong(n.program, lines, n.program.concat(parts, nolk::Axis::h));
}

// Zeros around the last two axes, which a single pad adds.
std::optional<Placed> paddedPlane(NodeLowering& n, const Placed& x, const std::vector<std::int64_t>& before,
                                  const std::vector<std::int64_t>& behind) {
    const std::size_t rank = x.rank();
    if (rank < 3 || !isInOrder(x)) return std::nullopt;
    for (std::size_t i = 0; i < rank; ++i) {
        const bool isPadded = before[i] != 0 || behind[i] != 0;
        if (isPadded && (i + 2 < rank || std::max(before[i], behind[i]) > 255)) return std::nullopt;
    }
    Axes others(rank - 2);
    std::iota(others.begin(), others.end(), 0);
    const int step = arranged(n.program, x, {others, {static_cast<int>(rank) - 2}, {static_cast<int>(rank) - 1}});
    const nolk::Padding padding{asInt(before[rank - 2]), asInt(behind[rank - 2]), asInt(before[rank - 1]),
                                asInt(behind[rank - 1])};
    return placed(n.program.pad(step, padding), n.outDims());
}

}  // namespace

// Reshape, Flatten, Squeeze, Unsqueeze
void lowerReshape(NodeLowering& n) { n.result(reshapedAlways(n.program, n.x(0), n.outDims())); }

void lowerTranspose(NodeLowering& n) {
    const Placed x = n.x(0);
    std::vector<std::int64_t> reversed(x.rank());
    std::iota(reversed.rbegin(), reversed.rend(), 0);
    const auto perm = n.integerList("perm", reversed);
    n.result(permuted(x, {perm.begin(), perm.end()}));
}

void lowerConcat(NodeLowering& n) {
    const std::size_t axis = n.axis(n.integer("axis", 1), n.outDims().size());
    std::vector<Placed> inputs;
    for (std::size_t i = 0; i < n.inputCount(); ++i)
        if (countOf(n.dims(i)) > 0) inputs.push_back(n.x(i));
    // The order of memory that no tensor has to be brought into is the best; ONNX's own comes next.
    std::size_t first = 0;
    for (std::size_t i = inputs.size(); i-- > 0;)
        if (isInOrder(inputs[i])) first = i;
    Placed model = inputs.at(first);
    if (!hasWholeAxes(model)) model = inOrder(n.program, model);
    std::vector<int> order = axesInMemory(model);
    // An axis of extent 1 has no place in memory: it goes where ONNX has it.
    if (model.axes[axis].empty())
        order.insert(std::find_if(order.begin(), order.end(), [&](int a) { return a > static_cast<int>(axis); }),
                     static_cast<int>(axis));
    const std::vector<Axes> groups = groupsAround(order, static_cast<int>(axis), model.rank());
    // The shape that the first tensor has serves where the axis is one of its own: then no view is needed.
    nolk::TensorShape shape = n.program.shapeOf(arranged(n.program, model, groups));
    nolk::Axis line = nolk::Axis::h;
    if (!model.axes[axis].empty()) {
        const Along lines = along(n.program, model, axis);
        shape = n.program.shapeOf(lines.step);
        line = lines.line;
    }
    std::vector<int> steps;
    for (const Placed& x : inputs)
        steps.push_back(inForm(n.program, arranged(n.program, x, groups), shape, line, asInt(x.dims()[axis])));
    const int step = n.program.concat(steps, line);
    Dims ordered;
    for (const int a : order) ordered.push_back(n.outDims()[static_cast<std::size_t>(a)]);
    const Placed inMemory = placed(step, ordered);
    Placed result;
    result.step = step;
    result.axes.resize(n.outDims().size());
    for (std::size_t i = 0; i < order.size(); ++i) result.axes[static_cast<std::size_t>(order[i])] = inMemory.axes[i];
    n.result(result);
}

void lowerSplit(NodeLowering& n) {
    const Placed x = n.x(0);
    const std::size_t axis = n.axis(n.integer("axis", 0), x.rank());
    std::int64_t start = 0;
    for (std::size_t i = 0; i < n.outputCount(); ++i) {
        if (!n.wants(i)) {
            const auto sizes = attributeOrInput(n, "split", 1);
            const auto count = static_cast<std::int64_t>(n.outputCount());
            start += sizes.empty() ? (x.dims()[axis] + count - 1) / count : sizes.at(i);
            continue;
        }
        const std::int64_t extent = n.outDims(i)[axis];
        n.result(taken(n.program, x, axis, start, extent, 1), i);
        start += extent;
    }
}

void lowerSlice(NodeLowering& n) {
    constexpr int kInputs = 10;  // the opset from which starts and ends are inputs
    const bool fromInputs = n.opset() >= kInputs;
    const auto starts = fromInputs ? n.integers(1, "starts") : n.integerList("starts");
    auto axes = fromInputs && n.has(3) ? n.integers(3, "axes") : n.integerList("axes");
    auto steps = fromInputs && n.has(4) ? n.integers(4, "steps") : std::vector<std::int64_t>(starts.size(), 1);
    if (axes.empty())
        for (std::size_t i = 0; i < starts.size(); ++i) axes.push_back(static_cast<std::int64_t>(i));
    Placed x = n.x(0);
    for (std::size_t i = 0; i < axes.size(); ++i) {
        const std::size_t axis = n.axis(axes[i], x.rank());
        const std::int64_t extent = x.dims()[axis], step = steps.at(i), count = n.outDims()[axis];
        if (count < 1) n.refuse("an empty result " + describeDims(n.outDims()), "remove the Slice");
        const std::int64_t given = starts.at(i) < 0 ? starts[i] + extent : starts[i];
        const std::int64_t start = std::clamp<std::int64_t>(given, 0, extent - 1);
        x = taken(n.program, x, axis, start, count, step);
    }
    n.result(x);
}

void lowerGather(NodeLowering& n) {
    if (!n.isConstant(1))
        n.refuse("the indices depend on the network's input",
                 "look the elements up in the host, and let the network begin behind the node");
    const Array& indices = n.constant(1, "the indices");
    const Placed x = n.x(0);
    const std::size_t axis = n.axis(n.integer("axis", 0), x.rank());
    std::vector<std::int64_t> list = indices.ints();
    const std::int64_t extent = x.dims()[axis];
    for (std::int64_t& index : list) {
        if (index < -extent || index >= extent)
            n.refuse("index " + std::to_string(index) + " is beyond the extent " + std::to_string(extent),
                     "use indices from " + std::to_string(-extent) + " to " + std::to_string(extent - 1) +
                         ", or give the input the shape that the network was made for (--shape)");
        if (index < 0) index += extent;
    }
    n.result(reshapedAlways(n.program, gathered(n.program, x, axis, list), n.outDims()));
}

void lowerPad(NodeLowering& n) {
    constexpr int kInputs = 11;  // the opset from which pads are an input
    const auto pads = n.opset() >= kInputs ? n.integers(1, "pads") : n.integerList("pads");
    const std::string mode = n.text("mode", "constant");
    Placed x = n.x(0);
    std::vector<std::int64_t> before(x.rank(), 0), behind(x.rank(), 0);
    std::vector<std::int64_t> axes(x.rank());
    std::iota(axes.begin(), axes.end(), 0);
    if (n.has(3)) axes = n.integers(3, "axes");
    if (pads.size() != 2 * axes.size()) n.refuse("pads of another rank", kAgainstOnnx);
    for (std::size_t i = 0; i < axes.size(); ++i) {
        before[n.axis(axes[i], x.rank())] = pads[i];
        behind[n.axis(axes[i], x.rank())] = pads[i + axes.size()];
    }
    for (std::size_t i = 0; i < x.rank(); ++i) {  // negative pads cut
        const std::int64_t cutBefore = std::max<std::int64_t>(-before[i], 0),
                           cutBehind = std::max<std::int64_t>(-behind[i], 0);
        if (cutBefore + cutBehind == 0) continue;
        const std::int64_t left = x.dims()[i] - cutBefore - cutBehind;
        if (left < 1) n.refuse("an empty result " + describeDims(n.outDims()), "remove the node");
        x = taken(n.program, x, i, cutBefore, left, 1);
        before[i] = std::max<std::int64_t>(before[i], 0);
        behind[i] = std::max<std::int64_t>(behind[i], 0);
    }
    const float value = padValue(n);
    if (mode == "constant" && value == 0.0f)
        if (const auto plane = paddedPlane(n, x, before, behind)) return n.result(*plane);
    for (std::size_t i = 0; i < x.rank(); ++i) {
        if (before[i] == 0 && behind[i] == 0) continue;
        if (mode == "constant")
            x = paddedAlong(n, x, i, asInt(before[i]), asInt(behind[i]), value);
        else
            x = gathered(n.program, x, i, paddedIndices(n.program, x.dims()[i], before[i], behind[i], mode));
    }
    n.result(x);
}

void lowerExpand(NodeLowering& n) { n.result(expanded(n.program, n.x(0), n.outDims())); }

// Every axis [e] becomes [r, 1 * e], of which the first is repeated.
void lowerTile(NodeLowering& n) {
    const Placed x = n.x(0);
    const auto repeats = n.integers(1, "repeats");
    Dims apart, repeated;
    for (std::size_t i = 0; i < x.rank(); ++i) {
        apart.insert(apart.end(), {1, x.dims()[i]});
        repeated.insert(repeated.end(), {repeats.at(i), x.dims()[i]});
    }
    n.result(
        reshapedAlways(n.program, expanded(n.program, reshapedAlways(n.program, x, apart), repeated), n.outDims()));
}

void lowerDepthToSpace(NodeLowering& n) {
    const std::int64_t b = n.integer("blocksize", 1);
    const Dims& d = n.dims(0);
    if (b < 1 || d.size() != 4 || d[1] % (b * b) != 0)
        n.refuse("blocksize " + std::to_string(b) + " for " + describeDims(d));
    const std::int64_t c = d[1] / (b * b);
    const bool rowsFirst = n.text("mode", "DCR") == "DCR";
    const Placed x = reshapedAlways(n.program, n.x(0),
                                    rowsFirst ? Dims{d[0], b, b, c, d[2], d[3]} : Dims{d[0], c, b, b, d[2], d[3]});
    const Placed moved =
        permuted(x, rowsFirst ? std::vector<int>{0, 3, 4, 1, 5, 2} : std::vector<int>{0, 1, 4, 2, 5, 3});
    n.result(reshapedAlways(n.program, moved, n.outDims()));
}

void lowerSpaceToDepth(NodeLowering& n) {
    const std::int64_t b = n.integer("blocksize", 1);
    const Dims& d = n.dims(0);
    if (b < 1 || d.size() != 4 || d[2] % b != 0 || d[3] % b != 0)
        n.refuse("blocksize " + std::to_string(b) + " for " + describeDims(d));
    const Placed x = reshapedAlways(n.program, n.x(0), {d[0], d[1], d[2] / b, b, d[3] / b, b});
    n.result(reshapedAlways(n.program, permuted(x, {0, 3, 5, 1, 2, 4}), n.outDims()));
}

}  // namespace convert
