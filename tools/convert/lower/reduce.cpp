// Reductions over any axes.
#include <algorithm>
#include <map>
#include <numeric>
#include <set>

#include "convert/lower/euclidean.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

std::set<std::size_t> reducedAxes(const NodeLowering& n, std::size_t rank) {
    const auto axes = n.axesOf(1);
    std::set<std::size_t> result;
    for (const std::int64_t axis : axes) result.insert(n.axis(axis, rank));
    if (!axes.empty() || n.integer("noop_with_empty_axes", 0) != 0) return result;
    for (std::size_t i = 0; i < rank; ++i) result.insert(i);
    return result;
}

struct Run {
    std::int64_t extent = 1;
    bool isReduced = false;
};

std::vector<Run> runsOf(const Placed& x, const std::set<std::size_t>& axes) {
    const std::vector<std::int64_t> memory = x.memory();
    std::vector<char> isReduced(memory.size(), 0);
    for (const std::size_t axis : axes)
        for (const Factor& factor : x.axes[axis]) isReduced[static_cast<std::size_t>(factor.place)] = 1;
    std::vector<Run> runs;
    for (std::size_t place = 0; place < memory.size(); ++place) {
        if (!runs.empty() && runs.back().isReduced == (isReduced[place] != 0))
            runs.back().extent *= memory[place];
        else
            runs.push_back({memory[place], isReduced[place] != 0});
    }
    return runs;
}

// Kept axes first, reduced ones last.
Placed sorted(Program& program, const Placed& x, const std::set<std::size_t>& axes) {
    std::vector<std::pair<bool, int>> places;
    for (std::size_t i = 0; i < x.rank(); ++i)
        for (const Factor& factor : x.axes[i]) places.emplace_back(axes.count(i) != 0, factor.place);
    std::sort(places.begin(), places.end());
    std::vector<int> order;
    for (const auto& place : places) order.push_back(place.second);
    return reordered(program, x, order);
}

// x with the axes gone from memory; step has what is left.
Placed withoutAxes(const Placed& x, const std::set<std::size_t>& axes, int step) {
    Placed result = x;
    result.step = step;
    std::set<int> kept;
    for (std::size_t i = 0; i < x.rank(); ++i) {
        if (axes.count(i) != 0) result.axes[i].clear();
        for (const Factor& factor : result.axes[i]) kept.insert(factor.place);
    }
    for (auto& axis : result.axes)
        for (Factor& factor : axis)
            factor.place = static_cast<int>(std::distance(kept.begin(), kept.find(factor.place)));
    return result;
}

// The shape in which x is reduced: its own, where each of its axes is kept or reduced as a whole.
struct Shapes {
    nolk::TensorShape from;
    nolk::TensorShape to;
};

std::optional<Shapes> shapesAsIs(const nolk::TensorShape& shape, const std::vector<Run>& runs) {
    if (shape.dims != 3) return std::nullopt;
    Shapes shapes{shape, shape};
    int* const extents[] = {&shapes.to.c, &shapes.to.h, &shapes.to.w};
    std::size_t run = 0;
    std::int64_t left = runs.empty() ? 1 : runs[0].extent;
    for (int* extent : extents) {
        if (*extent == 1) continue;
        if (left == 1 && ++run < runs.size()) left = runs[run].extent;
        if (left % *extent != 0) return std::nullopt;
        left /= *extent;
        if (runs[run].isReduced) *extent = 1;
    }
    return shapes;
}

Shapes shapesByRuns(const std::vector<Run>& runs) {
    Shapes shapes{{1, 1, 1, 1, 3}, {1, 1, 1, 1, 3}};
    int* const from[] = {&shapes.from.c, &shapes.from.h, &shapes.from.w};
    int* const to[] = {&shapes.to.c, &shapes.to.h, &shapes.to.w};
    for (std::size_t i = 0; i < runs.size(); ++i) {
        *from[3 - runs.size() + i] = asInt(runs[i].extent);
        if (!runs[i].isReduced) *to[3 - runs.size() + i] = asInt(runs[i].extent);
    }
    return shapes;
}

Placed reduced(Program& program, Placed x, const std::set<std::size_t>& axes, nolk::BasicOp operation) {
    std::vector<Run> runs = runsOf(x, axes);
    if (std::none_of(runs.begin(), runs.end(), [](const Run& run) { return run.isReduced; })) return x;
    std::optional<Shapes> shapes = shapesAsIs(program.shapeOf(x.step), runs);
    if (!shapes) {
        if (runs.size() > 3) {
            x = sorted(program, x, axes);
            runs = runsOf(x, axes);
        }
        shapes = shapesByRuns(runs);
    }
    const int step = program.reduce(program.view(x.step, shapes->from), shapes->to, operation);
    return withoutAxes(x, axes, step);
}

// |x| = sum of x * (x / |x|)
Placed euclideanNorm(Program& program, const Placed& x, const std::set<std::size_t>& axes) {
    Axes lines, others;
    for (std::size_t i = 0; i < x.rank(); ++i) (axes.count(i) != 0 ? lines : others).push_back(static_cast<int>(i));
    const int step = arranged(program, x, {lines, {}, others});
    const nolk::TensorShape shape = program.shapeOf(step);
    const int products = program.multiply(step, l2normalized(program, step));
    Dims dims = x.dims();
    for (const std::size_t axis : axes) dims[axis] = 1;
    return placed(program.reduce(products, {1, 1, 1, shape.w, 3}, nolk::BasicOp::sum), dims);
}

}  // namespace

void lowerReduce(NodeLowering& n) {
    Placed x = n.x(0);
    const std::set<std::size_t> axes = reducedAxes(n, x.rank());
    const std::string type = n.type();
    Placed result;
    if (type == "ReduceL2") {
        result = euclideanNorm(n.program, x, axes);
    } else {
        static const std::map<std::string, nolk::BasicOp> kOperations{
            {"ReduceMax", nolk::BasicOp::maximum}, {"ReduceMin", nolk::BasicOp::minimum},
            {"ReduceMean", nolk::BasicOp::mean},   {"ReduceSum", nolk::BasicOp::sum},
            {"ReduceL1", nolk::BasicOp::sum},      {"ReduceSumSquare", nolk::BasicOp::sum}};
        if (type == "ReduceL1") x = with(x, n.program.abs(x.step));
        if (type == "ReduceSumSquare") x = with(x, n.program.multiply(x.step, x.step));
        result = reduced(n.program, x, axes, kOperations.at(type));
    }
    n.result(reshapedAlways(n.program, result, n.outDims()));
}

}  // namespace convert
