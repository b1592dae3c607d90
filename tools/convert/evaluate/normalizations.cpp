#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"

namespace convert {

namespace {

Array madeOf(const Value& result, const std::vector<double>& values) {
    return {result.type, result.dims, std::vector<float>(values.begin(), values.end())};
}

// A tensor as [outer, line, inner]: lines of neighbours along one axis, or along several that follow each other.
struct Lines {
    std::int64_t outer = 1, line = 1, inner = 1;
};
Lines linesOf(const Dims& dims, std::size_t begin, std::size_t end) {
    const auto product = [&](std::size_t from, std::size_t to) {
        return elementCount(
            Dims(dims.begin() + static_cast<std::ptrdiff_t>(from), dims.begin() + static_cast<std::ptrdiff_t>(to)));
    };
    return {product(0, begin), product(begin, end), product(end, dims.size())};
}

// Calls change(line) for every line of x, whose values it may replace.
template <typename Change>
std::vector<double> changedLines(const std::vector<float>& x, const Lines& lines, Change&& change) {
    std::vector<double> result(x.begin(), x.end());
    std::vector<double> line(static_cast<std::size_t>(lines.line));
    for (std::int64_t outer = 0; outer < lines.outer; ++outer)
        for (std::int64_t inner = 0; inner < lines.inner; ++inner) {
            const auto at = [&](std::size_t i) {
                return static_cast<std::size_t>((outer * lines.line + static_cast<std::int64_t>(i)) * lines.inner +
                                                inner);
            };
            for (std::size_t i = 0; i < line.size(); ++i) line[i] = result[at(i)];
            change(line);
            for (std::size_t i = 0; i < line.size(); ++i) result[at(i)] = line[i];
        }
    return result;
}

// Softmax and its like. Before opset 13 all dimensions from the axis on are one.

Lines softmaxLines(const Call& call) {
    const bool flattens = call.opset < 13;
    const int rank = call.rank(0);
    const std::int64_t axis = call.intAttribute("axis", flattens ? 1 : -1);
    if (flattens && axis == rank) return linesOf(call.dims(0), call.dims(0).size(), call.dims(0).size());
    const auto begin = static_cast<std::size_t>(wrapAxis(axis, rank));
    return linesOf(call.dims(0), begin, flattens ? call.dims(0).size() : begin + 1);
}

Values softmaxShapes(const Call& call) {
    softmaxLines(call);
    return asFirstInput(call);
}

void softmax(std::vector<double>& line) {
    const double largest = line.empty() ? 0 : *std::max_element(line.begin(), line.end());
    double sum = 0;
    for (double& x : line) sum += x = std::exp(x - largest);
    for (double& x : line) x /= sum;
}

void logSoftmax(std::vector<double>& line) {
    const double largest = line.empty() ? 0 : *std::max_element(line.begin(), line.end());
    double sum = 0;
    for (const double x : line) sum += std::exp(x - largest);
    for (double& x : line) x -= largest + std::log(sum);
}

void hardmax(std::vector<double>& line) {
    const auto largest = std::max_element(line.begin(), line.end()) - line.begin();
    std::fill(line.begin(), line.end(), 0);
    if (!line.empty()) line[static_cast<std::size_t>(largest)] = 1;
}

template <void (*change)(std::vector<double>&)>
Arrays computeSoftmax(const Call& call, const Values& results) {
    return {madeOf(results[0], changedLines(call.floats(0), softmaxLines(call), change))};
}

// (x - mean) / sqrt(variance + epsilon); returns 1 / sqrt.
double standardize(std::vector<double>& line, double epsilon, double* meanOut = nullptr) {
    double mean = 0, variance = 0;
    for (const double x : line) mean += x;
    mean /= static_cast<double>(line.size());
    for (const double x : line) variance += (x - mean) * (x - mean);
    const double factor = 1 / std::sqrt(variance / static_cast<double>(line.size()) + epsilon);
    for (double& x : line) x = (x - mean) * factor;
    if (meanOut != nullptr) *meanOut = mean;
    return factor;
}

void needChannels(const Call& call, std::size_t firstVector, std::size_t count) {
    need(call.rank(0) >= 2, "input of shape " + describeDims(call.dims(0)) + " has no channels");
    for (std::size_t i = firstVector; i < firstVector + count; ++i)
        need(elementCount(call.dims(i)) == call.dims(0)[1], "input " + std::to_string(i + 1) + " of shape " +
                                                                describeDims(call.dims(i)) + " for an input of " +
                                                                describeDims(call.dims(0)));
}

// Applies change(x, channel) to each element of [n, c, ...].
template <typename Change>
void changeChannels(std::vector<double>& values, const Dims& dims, Change&& change) {
    const Lines lines = linesOf(dims, 1, 2);
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = change(values[i], i / static_cast<std::size_t>(lines.inner) % static_cast<std::size_t>(lines.line));
}

Values batchShapes(const Call& call) {
    need(call.intAttribute("spatial", 1) != 0, "spatial is 0: every element has statistics of its own",
         "export with opset 9 or later");
    needChannels(call, 1, 4);
    Values results{valueOf(call.in(0).type, call.dims(0))};
    results.resize(std::max<std::size_t>(1, call.outputCount()), valueOf(call.in(0).type, call.dims(3)));
    return results;
}

Arrays computeBatch(const Call& call, const Values& results) {
    need(call.intAttribute("training_mode", 0) == 0, "training_mode is not supported");
    for (std::size_t i = 1; i < call.outputCount(); ++i)
        need(!call.wants(i), "the outputs of training are not supported");
    const double epsilon = call.floatAttribute("epsilon", 1e-5F);
    const std::vector<float>&scale = call.floats(1), &bias = call.floats(2);
    const std::vector<float>&mean = call.floats(3), &variance = call.floats(4);
    std::vector<double> values(call.floats(0).begin(), call.floats(0).end());
    changeChannels(values, call.dims(0), [&](double x, std::size_t c) {
        return scale[c] * ((x - mean[c]) / std::sqrt(variance[c] + epsilon)) + bias[c];
    });
    return {madeOf(results[0], values)};
}

Values instanceShapes(const Call& call) {
    needChannels(call, 1, 2);
    return asFirstInput(call);
}

Arrays computeInstance(const Call& call, const Values& results) {
    const double epsilon = call.floatAttribute("epsilon", 1e-5F);
    const std::vector<float>&scale = call.floats(1), &bias = call.floats(2);
    std::vector<double> values = changedLines(call.floats(0), linesOf(call.dims(0), 2, call.dims(0).size()),
                                              [&](std::vector<double>& plane) { standardize(plane, epsilon); });
    changeChannels(values, call.dims(0), [&](double x, std::size_t c) { return scale[c] * x + bias[c]; });
    return {madeOf(results[0], values)};
}

// Groups of channels, scaled for each channel from opset 21 on, for each group before.
Values groupShapes(const Call& call) {
    need(call.rank(0) >= 2, "input of shape " + describeDims(call.dims(0)) + " has no channels");
    const std::int64_t groups = call.intAttribute("num_groups", 0), channels = call.dims(0)[1];
    need(groups >= 1 && channels % groups == 0, "num_groups does not divide the channels");
    for (std::size_t i = 1; i < 3; ++i)
        need(elementCount(call.dims(i)) == (call.opset >= 21 ? channels : groups),
             "input " + std::to_string(i + 1) + " of shape " + describeDims(call.dims(i)));
    return asFirstInput(call);
}

Arrays computeGroup(const Call& call, const Values& results) {
    const double epsilon = call.floatAttribute("epsilon", 1e-5F);
    const std::int64_t groups = call.intAttribute("num_groups", 0), channels = call.dims(0)[1];
    const std::vector<float>&scale = call.floats(1), &bias = call.floats(2);
    const std::int64_t perSample = call.dims(0)[0] == 0 ? 0 : elementCount(call.dims(0)) / call.dims(0)[0];
    std::vector<double> values = changedLines(call.floats(0), {call.dims(0)[0] * groups, perSample / groups, 1},
                                              [&](std::vector<double>& group) { standardize(group, epsilon); });
    const auto perScale = static_cast<std::size_t>(call.opset >= 21 ? 1 : channels / groups);
    changeChannels(values, call.dims(0),
                   [&](double x, std::size_t c) { return scale[c / perScale] * x + bias[c / perScale]; });
    return {madeOf(results[0], values)};
}

Values layerShapes(const Call& call) {
    const int axis = call.axis("axis", -1, call.rank(0));
    const Dims& dims = call.dims(0);
    const Dims normalized(dims.begin() + axis, dims.end());
    for (std::size_t i = 1; i < 3; ++i)
        if (i == 1 || call.has(i))
            need(broadcastDims(call.dims(i), normalized) == normalized, "input " + std::to_string(i + 1) +
                                                                            " of shape " + describeDims(call.dims(i)) +
                                                                            " for an input of " + describeDims(dims));
    Dims reduced = dims;
    std::fill(reduced.begin() + axis, reduced.end(), 1);
    const Value statistics = valueOf(call.in(0).type, reduced);
    Values results{valueOf(call.in(0).type, dims), statistics, statistics};
    results.resize(std::max<std::size_t>(1, std::min<std::size_t>(call.outputCount(), 3)));
    return results;
}

Arrays computeLayer(const Call& call, const Values& results) {
    const double epsilon = call.floatAttribute("epsilon", 1e-5F);
    const auto axis = static_cast<std::size_t>(call.axis("axis", -1, call.rank(0)));
    const Dims& dims = call.dims(0);
    const Dims normalized(dims.begin() + static_cast<std::ptrdiff_t>(axis), dims.end());
    const auto spread = [&](std::size_t input, double otherwise) {
        std::vector<double> values(static_cast<std::size_t>(elementCount(normalized)), otherwise);
        if (!call.has(input)) return values;
        std::size_t i = 0;
        forEachOffset(normalized, broadcastSteps(call.dims(input), normalized),
                      [&](std::int64_t offset) { values[i++] = call.floats(input)[static_cast<std::size_t>(offset)]; });
        return values;
    };
    const std::vector<double> scale = spread(1, 1), bias = spread(2, 0);
    std::vector<double> means, factors;
    const std::vector<double> values =
        changedLines(call.floats(0), linesOf(dims, axis, dims.size()), [&](std::vector<double>& line) {
            double mean = 0;
            factors.push_back(standardize(line, epsilon, &mean));
            means.push_back(mean);
            for (std::size_t i = 0; i < line.size(); ++i) line[i] = line[i] * scale[i] + bias[i];
        });
    Arrays arrays{madeOf(results[0], values)};
    if (results.size() > 1) arrays.push_back(madeOf(results[1], means));
    if (results.size() > 2) arrays.push_back(madeOf(results[2], factors));
    return arrays;
}

Values meanVarianceShapes(const Call& call) {
    const std::vector<std::int64_t> axes = call.intsAttribute("axes").value_or(std::vector<std::int64_t>{0, 2, 3});
    for (const std::int64_t axis : axes) wrapAxis(axis, call.rank(0));
    return asFirstInput(call);
}

// (x - mean) / (standard deviation + 1e-9) over the axes.
Arrays computeMeanVariance(const Call& call, const Values& results) {
    const std::vector<std::int64_t> axes = call.intsAttribute("axes").value_or(std::vector<std::int64_t>{0, 2, 3});
    Dims kept = call.dims(0);
    for (const std::int64_t axis : axes) kept[static_cast<std::size_t>(wrapAxis(axis, call.rank(0)))] = 1;
    const std::vector<float>& x = call.floats(0);
    const std::size_t places = static_cast<std::size_t>(elementCount(kept));
    std::vector<double> sums(places), squares(places), values;
    const auto forEach = [&](auto&& use) {
        std::size_t i = 0;
        forEachOffset(call.dims(0), broadcastSteps(kept, call.dims(0)),
                      [&](std::int64_t offset) { use(x[i++], static_cast<std::size_t>(offset)); });
    };
    const double count = static_cast<double>(x.size()) / static_cast<double>(std::max<std::size_t>(places, 1));
    forEach([&](double value, std::size_t place) { sums[place] += value / count; });
    forEach([&](double value, std::size_t place) {
        squares[place] += (value - sums[place]) * (value - sums[place]) / count;
    });
    forEach([&](double value, std::size_t place) {
        values.push_back((value - sums[place]) / (std::sqrt(squares[place]) + 1e-9));
    });
    return {madeOf(results[0], values)};
}

Values lpShapes(const Call& call) {
    call.axis("axis", -1, call.rank(0));
    const std::int64_t p = call.intAttribute("p", 2);
    need(p == 1 || p == 2, "p " + std::to_string(p) + " is not possible", kAgainstOnnx);
    return asFirstInput(call);
}

Arrays computeLp(const Call& call, const Values& results) {
    const auto axis = static_cast<std::size_t>(call.axis("axis", -1, call.rank(0)));
    const bool isSquare = call.intAttribute("p", 2) == 2;
    return {madeOf(results[0],
                   changedLines(call.floats(0), linesOf(call.dims(0), axis, axis + 1), [&](std::vector<double>& line) {
                       double sum = 0;
                       for (const double x : line) sum += isSquare ? x * x : std::abs(x);
                       const double norm = isSquare ? std::sqrt(sum) : sum;
                       for (double& x : line) x = norm == 0 ? 0 : x / norm;
                   }))};
}

Values lrnShapes(const Call& call) {
    need(call.rank(0) >= 2, "input of shape " + describeDims(call.dims(0)) + " has no channels");
    need(call.intAttribute("size", 0) >= 1, "size is not possible", kAgainstOnnx);
    return asFirstInput(call);
}

Arrays computeLrn(const Call& call, const Values& results) {
    const double alpha = call.floatAttribute("alpha", 0.0001F), beta = call.floatAttribute("beta", 0.75);
    const double bias = call.floatAttribute("bias", 1);
    const std::int64_t size = call.intAttribute("size", 1);
    return {madeOf(
        results[0], changedLines(call.floats(0), linesOf(call.dims(0), 1, 2), [&](std::vector<double>& line) {
            const std::vector<double> x = line;
            const auto count = static_cast<std::int64_t>(x.size());
            for (std::int64_t c = 0; c < count; ++c) {
                double sum = 0;
                const std::int64_t first = std::max<std::int64_t>(0, c - (size - 1) / 2);
                for (std::int64_t i = first; i <= std::min(count - 1, c + size / 2); ++i)
                    sum += x[static_cast<std::size_t>(i)] * x[static_cast<std::size_t>(i)];
                line[static_cast<std::size_t>(c)] /= std::pow(bias + alpha / static_cast<double>(size) * sum, beta);
            }
        }))};
}

}  // namespace

const std::vector<Operator>& normalizationOperators() {
    static const std::vector<Operator> rows = {
        {"BatchNormalization", batchShapes, computeBatch},
        {"GroupNormalization", groupShapes, computeGroup},
        {"Hardmax", softmaxShapes, computeSoftmax<hardmax>},
        {"InstanceNormalization", instanceShapes, computeInstance},
        {"LRN", lrnShapes, computeLrn},
        {"LayerNormalization", layerShapes, computeLayer},
        {"LogSoftmax", softmaxShapes, computeSoftmax<logSoftmax>},
        {"LpNormalization", lpShapes, computeLp},
        {"MeanVarianceNormalization", meanVarianceShapes, computeMeanVariance},
        {"Softmax", softmaxShapes, computeSoftmax<softmax>},
    };
    return rows;
}

}  // namespace convert
