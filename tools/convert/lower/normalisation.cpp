// Normalisations.
#include <algorithm>
#include <cmath>

#include "convert/lower/broadcast.h"
#include "convert/lower/euclidean.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

// [count, 1, 1, ...], to be broadcast over axis 1 of a tensor of this rank.
Dims channelDims(std::size_t count, std::size_t rank) {
    Dims dims(rank - 1, 1);
    dims[0] = static_cast<std::int64_t>(count);
    return dims;
}

Placed affine(Program& program, const Placed& x, const std::optional<Operand>& scale,
              const std::optional<Operand>& bias) {
    Placed result = x;
    if (scale) result = combined(program, Binary::multiply, operandOf(result), *scale);
    if (bias) result = combined(program, Binary::add, operandOf(result), *bias);
    return result;
}

std::optional<Operand> optional(NodeLowering& n, std::size_t input) {
    if (!n.has(input)) return std::nullopt;
    return operandOf(n, input);
}

// A step whose memory has the axes of lines, then those of values.
Placed placedIn(int step, const Dims& dims, const Axes& lines, const Axes& values) {
    std::vector<int> order = lines;
    order.insert(order.end(), values.begin(), values.end());
    Dims ordered;
    std::vector<int> back(order.size());
    for (std::size_t i = 0; i < order.size(); ++i) {
        ordered.push_back(dims[static_cast<std::size_t>(order[i])]);
        back[static_cast<std::size_t>(order[i])] = static_cast<int>(i);
    }
    return permuted(placed(step, ordered), back);
}

// Every [1, c, ...] with c times as many planes for a batch that the file has fixed.
Floats repeated(const Program& program, const Floats& values, std::int64_t times) {
    if (times == 1) return values;
    program.requireFloats(static_cast<std::int64_t>(values->size()) * times);
    std::vector<float> result;
    for (std::int64_t i = 0; i < times; ++i) result.insert(result.end(), values->begin(), values->end());
    return std::make_shared<const std::vector<float>>(std::move(result));
}

}  // namespace

void lowerBatchNormalization(NodeLowering& n) {
    if (n.integer("training_mode", 0) != 0) n.refuse("training_mode is set", "export in evaluation mode");
    for (std::size_t i = 1; i < n.outputCount(); ++i)
        if (n.wants(i)) n.refuse("statistics are computed by the node", "export in evaluation mode");
    const Floats scale = n.floats(1, "scale"), bias = n.floats(2, "B"), mean = n.floats(3, "mean"),
                 variance = n.floats(4, "variance");
    const float epsilon = n.number("epsilon", 1e-5f);
    const Placed x = n.x(0);
    if (x.rank() < 2) n.refuse("an input of " + describeDims(x.dims()));
    const std::size_t channels = scale->size();
    const Along lines = along(n.program, x, 1);
    constexpr std::size_t kMostChannels = 32767;  // a vector's count is of 16 bits in the file
    if (lines.line == nolk::Axis::c && channels <= kMostChannels)
        return n.result(
            backAlong(n.program, lines, n.program.batchNormalize(lines.step, scale, bias, mean, variance, epsilon)));
    std::vector<float> factors(channels), addends(channels);
    for (std::size_t i = 0; i < channels; ++i) {
        const double factor = (*scale)[i] / std::sqrt(static_cast<double>((*variance)[i]) + epsilon);
        factors[i] = static_cast<float>(factor);
        addends[i] = static_cast<float>((*bias)[i] - (*mean)[i] * factor);
    }
    n.result(affine(n.program, x, operandOf(floatArray(channelDims(channels, x.rank()), std::move(factors))),
                    operandOf(floatArray(channelDims(channels, x.rank()), std::move(addends)))));
}

void lowerInstanceNormalization(NodeLowering& n) {
    const Placed x = n.x(0);
    if (x.rank() < 3) n.refuse("an input of " + describeDims(x.dims()));
    Axes plane;
    for (std::size_t i = 3; i < x.rank(); ++i) plane.push_back(static_cast<int>(i));
    const int step = arranged(n.program, x, {{0, 1}, {2}, plane});
    const std::int64_t samples = x.dims()[0];
    n.result(placed(
        n.program.instanceNormalization(step, repeated(n.program, n.floats(1, "scale"), samples),
                                        repeated(n.program, n.floats(2, "B"), samples), n.number("epsilon", 1e-5f)),
        n.outDims()));
}

// Each line of the normalised axes is a plane of instance normalisation.
void lowerLayerNormalization(NodeLowering& n) {
    if (n.wants(1) || n.wants(2)) n.refuse("the outputs Mean or InvStdDev are used", "export in evaluation mode");
    const Placed x = n.x(0);
    const std::size_t axis = n.axis(n.integer("axis", -1), x.rank());
    const auto given = n.integerList("axes");  // of the rewriting, which finds any axes
    Axes lines, values;
    for (std::size_t i = 0; i < x.rank(); ++i) {
        const bool isListed = std::find(given.begin(), given.end(), static_cast<std::int64_t>(i)) != given.end();
        (isListed || (given.empty() && i >= axis) ? values : lines).push_back(static_cast<int>(i));
    }
    const int step =
        n.program.instanceNormalization(arranged(n.program, x, {lines, {}, values}), n.number("epsilon", 1e-5f));
    n.result(affine(n.program, placedIn(step, x.dims(), lines, values), optional(n, 1), optional(n, 2)));
}

// Scale and bias are per group up to opset 20, per channel from 21 on.
void lowerGroupNormalization(NodeLowering& n) {
    const Placed x = n.x(0);
    const Dims& dims = n.outDims();
    const std::int64_t groups = n.integer("num_groups", 1), channels = dims.at(1);
    if (groups < 1 || channels % groups != 0)
        n.refuse(std::to_string(groups) + " groups of " + std::to_string(channels) + " channels");
    const Placed ordered = inOrder(n.program, x);
    const std::int64_t planes = dims[0] * groups;
    std::int64_t count = 1;
    for (const std::int64_t extent : dims) count *= extent;
    const int step = n.program.view(ordered.step, {1, asInt(planes), 1, asInt(count / planes), 3});
    const auto perChannel = [&](std::size_t input, const char* name) {
        const Floats values = n.floats(input, name);
        n.program.requireFloats(channels);
        std::vector<float> result(static_cast<std::size_t>(channels));
        for (std::size_t i = 0; i < result.size(); ++i) result[i] = values->at(i * values->size() / result.size());
        return operandOf(floatArray(channelDims(result.size(), dims.size()), result));
    };
    const Placed normalised = placed(n.program.instanceNormalization(step, n.number("epsilon", 1e-5f)), dims);
    n.result(affine(n.program, normalised, perChannel(1, "scale"), perChannel(2, "bias")));
}

// factor * x / sqrt(addend^2 + |x|^2) along one axis. Factor and addend are the rewriting's; a line of zeros stays one.
void lowerLpNormalization(NodeLowering& n) {
    if (n.integer("p", 2) != 2)
        n.refuse("p = " + std::to_string(n.integer("p", 2)), "write it with Abs, ReduceSum and Div");
    const Placed x = n.x(0);
    const std::size_t axis = n.axis(n.integer("axis", -1), x.rank());
    const Placed normalised = normalisedAlong(n.program, x, axis, std::max(n.number("addend", 0), kTinyAddend));
    n.result(with(normalised, n.program.times(normalised.step, n.number("factor", 1))));
}

}  // namespace convert
