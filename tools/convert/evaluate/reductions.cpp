#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "convert/evaluate/Operator.h"

namespace convert {

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

struct Reduction {
    const char* name;
    double start;
    double (*add)(double sum, double x);
    double (*finish)(double sum, double count);
};

double plus(double sum, double x) { return sum + x; }
double same(double sum, double) { return sum; }

const Reduction kReductions[] = {
    {"ReduceL1", 0, [](double sum, double x) { return sum + std::abs(x); }, same},
    {"ReduceL2", 0, [](double sum, double x) { return sum + x * x; },
     [](double sum, double) { return std::sqrt(sum); }},
    {"ReduceLogSum", 0, plus, [](double sum, double) { return std::log(sum); }},
    {"ReduceLogSumExp", 0, [](double sum, double x) { return sum + std::exp(x); },
     [](double sum, double) { return std::log(sum); }},
    {"ReduceMax", -kInfinity, [](double sum, double x) { return x > sum || std::isnan(x) ? x : sum; }, same},
    {"ReduceMean", 0, plus, [](double sum, double count) { return sum / count; }},
    {"ReduceMin", kInfinity, [](double sum, double x) { return x < sum || std::isnan(x) ? x : sum; }, same},
    {"ReduceProd", 1, [](double sum, double x) { return sum * x; }, same},
    {"ReduceSum", 0, plus, same},
    {"ReduceSumSquare", 0, [](double sum, double x) { return sum + x * x; }, same},
};

// Which axes are reduced. None named means all, unless noop_with_empty_axes says none.
std::vector<bool> reducedAxes(const Call& call) {
    const std::size_t rank = call.dims(0).size();
    const auto axes = call.intsOf("axes", 1);
    if (!axes || axes->empty()) return std::vector<bool>(rank, call.intAttribute("noop_with_empty_axes", 0) == 0);
    std::vector<bool> reduced(rank, false);
    for (const std::int64_t axis : *axes) reduced[static_cast<std::size_t>(wrapAxis(axis, call.rank(0)))] = true;
    return reduced;
}

Dims keptDims(const Dims& dims, const std::vector<bool>& reduced) {
    Dims kept = dims;
    for (std::size_t axis = 0; axis < dims.size(); ++axis)
        if (reduced[axis]) kept[axis] = 1;
    return kept;
}

Dims resultDims(const Call& call, const std::vector<bool>& reduced) {
    if (call.intAttribute("keepdims", 1) != 0) return keptDims(call.dims(0), reduced);
    Dims dims;
    for (std::size_t axis = 0; axis < reduced.size(); ++axis)
        if (!reduced[axis]) dims.push_back(call.dims(0)[axis]);
    return dims;
}

Values reduceShapes(const Call& call) { return {valueOf(call.in(0).type, resultDims(call, reducedAxes(call)))}; }

Arrays computeReduction(const Call& call, const Values& results) {
    const Reduction& row = *std::find_if(std::begin(kReductions), std::end(kReductions),
                                         [&](const Reduction& r) { return call.node.op_type() == r.name; });
    const Array& input = call.array(0);
    const Dims kept = keptDims(input.dims(), reducedAxes(call));
    std::vector<double> sums(static_cast<std::size_t>(elementCount(kept)), row.start);
    std::size_t i = 0;
    forEachOffset(input.dims(), broadcastSteps(kept, input.dims()), [&](std::int64_t offset) {
        double& sum = sums[static_cast<std::size_t>(offset)];
        sum = row.add(sum, input.isFloat() ? input.floats()[i] : static_cast<double>(input.ints()[i]));
        ++i;
    });
    const double count =
        static_cast<double>(input.count()) / static_cast<double>(std::max<std::size_t>(sums.size(), 1));
    for (double& sum : sums) sum = row.finish(sum, count);
    if (input.isFloat()) return {{input.type(), results[0].dims, std::vector<float>(sums.begin(), sums.end())}};
    std::vector<std::int64_t> ints;
    for (const double sum : sums) ints.push_back(std::abs(sum) < 9e18 ? static_cast<std::int64_t>(sum) : 0);
    return {{input.type(), results[0].dims, std::move(ints)}};
}

std::vector<bool> argumentAxis(const Call& call) {
    std::vector<bool> reduced(call.dims(0).size(), false);
    reduced[static_cast<std::size_t>(call.axis("axis", 0, call.rank(0)))] = true;
    return reduced;
}

Values argumentShapes(const Call& call) {
    return {valueOf(onnx::TensorProto::INT64, resultDims(call, argumentAxis(call)))};
}

Arrays computeArgument(const Call& call, const Values& results) {
    const Array& input = call.array(0);
    const int axis = call.axis("axis", 0, call.rank(0));
    const std::int64_t extent = input.dims()[static_cast<std::size_t>(axis)];
    const std::int64_t stride = stridesOf(input.dims())[static_cast<std::size_t>(axis)];
    const double factor = call.node.op_type() == "ArgMax" ? 1 : -1;
    const bool takesLast = call.intAttribute("select_last_index", 0) != 0;
    need(extent > 0, "the axis is empty");
    const auto at = [&](std::int64_t offset) {
        const auto i = static_cast<std::size_t>(offset);
        return factor * (input.isFloat() ? input.floats()[i] : static_cast<double>(input.ints()[i]));
    };
    std::vector<std::int64_t> values;
    const Dims kept = keptDims(input.dims(), argumentAxis(call));
    forEachOffset(kept, stridesOf(input.dims()), [&](std::int64_t offset) {
        std::int64_t best = 0;
        for (std::int64_t i = 1; i < extent; ++i) {
            const double here = at(offset + i * stride), there = at(offset + best * stride);
            if (here > there || (takesLast && here == there)) best = i;
        }
        values.push_back(best);
    });
    return {{onnx::TensorProto::INT64, results[0].dims, std::move(values)}};
}

std::vector<Operator> makeRows() {
    std::vector<Operator> rows;
    for (const Reduction& reduction : kReductions) rows.push_back({reduction.name, reduceShapes, computeReduction});
    rows.push_back({"ArgMax", argumentShapes, computeArgument});
    rows.push_back({"ArgMin", argumentShapes, computeArgument});
    return rows;
}

}  // namespace

const std::vector<Operator>& reductionOperators() {
    static const std::vector<Operator> rows = makeRows();
    return rows;
}

}  // namespace convert
