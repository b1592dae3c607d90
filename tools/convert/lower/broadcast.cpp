#include "convert/lower/broadcast.h"

#include <algorithm>
#include <numeric>
#include <set>

namespace convert {

namespace {

using nolk::TensorShape;

// A factor of the main tensor, in memory's order, and whether the other one has it.
struct Part {
    std::int64_t extent = 1;
    bool isShared = false;
};
using Parts = std::vector<Part>;

Dims broadcastDims(const Dims& a, const Dims& b) {
    Dims result(std::max(a.size(), b.size()), 1);
    for (const Dims& dims : {a, b})
        for (std::size_t i = 0; i < dims.size(); ++i) {
            std::int64_t& extent = result[result.size() - dims.size() + i];
            if (dims[i] != 1 && extent != 1 && extent != dims[i])
                throw std::logic_error("extents that do not broadcast: " + describeDims(a) + ", " + describeDims(b));
            extent = dims[i] == 1 ? extent : dims[i];
        }
    return result;
}

Dims padded(const Dims& dims, std::size_t rank) {
    Dims result(rank - dims.size(), 1);
    result.insert(result.end(), dims.begin(), dims.end());
    return result;
}

void pad(Operand& operand, std::size_t rank) {
    if (operand.tensor)
        operand.tensor->axes.insert(operand.tensor->axes.begin(), rank - operand.tensor->rank(), {});
    else
        operand.values = operand.values->withDims(padded(operand.values->dims(), rank));
}

std::vector<std::int64_t> extentsOf(const std::vector<Factor>& factors) {
    std::vector<std::int64_t> extents;
    for (const Factor& factor : factors) extents.push_back(factor.extent);
    return extents;
}

// The extents of the factors that both lists can be cut into; empty when there are none.
std::vector<std::int64_t> commonCut(const std::vector<std::int64_t>& a, const std::vector<std::int64_t>& b) {
    std::set<std::int64_t> ends;
    for (const auto* list : {&a, &b}) {
        std::int64_t end = 1;
        for (const std::int64_t extent : *list) ends.insert(end *= extent);
    }
    std::vector<std::int64_t> cut;
    std::int64_t before = 1;
    for (const std::int64_t end : ends) {
        if (end % before != 0) return {};
        cut.push_back(end / before);
        before = end;
    }
    return cut;
}

// Cuts both tensors' axes into the same factors, where both have them; otherwise moves elements into ONNX's order.
void cutAlike(Program& program, Placed& a, Placed& b) {
    for (std::size_t i = 0; i < a.rank(); ++i) {
        const auto ofA = extentsOf(a.axes[i]), ofB = extentsOf(b.axes[i]);
        if (ofA.empty() || ofB.empty() || ofA == ofB) continue;
        const auto cut = commonCut(ofA, ofB);
        const auto cutA = cut.empty() ? std::nullopt : refined(a, i, cut);
        const auto cutB = cut.empty() ? std::nullopt : refined(b, i, cut);
        if (!cutA || !cutB) {
            a = inOrder(program, a);
            b = inOrder(program, b);
            return;
        }
        a = *cutA;
        b = *cutB;
    }
}

// x's factors [in memory's order of main], with 1 where x has none.
struct Arranged {
    int step = -1;
    Parts parts;
};

Arranged arrangedLike(Program& program, Placed& main, Placed x) {
    cutAlike(program, main, x);
    const std::vector<std::int64_t> memory = main.memory();
    std::vector<int> source(memory.size(), -1);  // x's place for each of main's
    for (std::size_t i = 0; i < main.rank(); ++i)
        for (std::size_t k = 0; k < x.axes[i].size(); ++k)
            source[static_cast<std::size_t>(main.axes[i][k].place)] = x.axes[i][k].place;
    Arranged result;
    std::vector<int> order;
    for (std::size_t place = 0; place < memory.size(); ++place) {
        result.parts.push_back({memory[place], source[place] >= 0});
        if (source[place] >= 0) order.push_back(source[place]);
    }
    result.step = std::is_sorted(order.begin(), order.end()) ? x.step : reordered(program, x, order).step;
    return result;
}

struct ArrangedValues {
    std::vector<float> values;
    Parts parts;
};

// The values in memory's order of main.
ArrangedValues arrangedLike(const Placed& main, const Array& array) {
    const std::vector<std::int64_t> memory = main.memory();
    std::vector<std::int64_t> strides(memory.size(), 0);
    std::int64_t stride = 1;
    ArrangedValues result;
    result.parts.resize(memory.size());
    for (std::size_t place = 0; place < memory.size(); ++place) result.parts[place].extent = memory[place];
    for (std::size_t i = main.rank(); i-- > 0;) {
        if (array.dims()[i] == 1) continue;
        for (auto factor = main.axes[i].rbegin(); factor != main.axes[i].rend(); ++factor) {
            const auto place = static_cast<std::size_t>(factor->place);
            result.parts[place].isShared = true;
            strides[place] = stride;
            stride *= factor->extent;
        }
    }
    const Floats values = floatsOf(array);
    result.values.reserve(values->size());
    std::vector<std::int64_t> index(memory.size(), 0);
    std::int64_t at = 0;
    for (std::size_t n = 0; n < values->size(); ++n) {
        result.values.push_back((*values)[static_cast<std::size_t>(at)]);
        for (std::size_t place = memory.size(); place-- > 0;) {
            if (!result.parts[place].isShared) continue;
            at += strides[place];
            if (++index[place] < memory[place]) break;
            at -= strides[place] * memory[place];
            index[place] = 0;
        }
    }
    return result;
}

// Shapes under which the main tensor and the other one broadcast as nolk does.
struct Shapes {
    TensorShape main;
    TensorShape other;
};

// The main tensor's own shape, where every extent is shared or missing as a whole.
std::optional<Shapes> shapesAsIs(const TensorShape& main, const Parts& parts) {
    Shapes shapes{main, {1, 1, 1, 1, 3}};
    std::size_t next = 0;
    const int extents[] = {main.c, main.h, main.w};
    int* const others[] = {&shapes.other.c, &shapes.other.h, &shapes.other.w};
    for (int i = 0; i < 3; ++i) {
        std::int64_t covered = 1;
        const std::size_t first = next;
        while (covered < extents[i] && next < parts.size()) {
            if (parts[next].isShared != parts[first].isShared) return std::nullopt;
            covered *= parts[next++].extent;
        }
        if (covered != extents[i]) return std::nullopt;
        if (next > first && parts[first].isShared) *others[i] = extents[i];
    }
    return shapes;
}

Parts runsOf(const Parts& parts) {
    Parts runs;
    for (const Part& part : parts) {
        if (!runs.empty() && runs.back().isShared == part.isShared)
            runs.back().extent *= part.extent;
        else
            runs.push_back(part);
    }
    return runs;
}

std::optional<Shapes> shapesByRuns(const Parts& parts) {
    const Parts runs = runsOf(parts);
    if (runs.size() > 3) return std::nullopt;
    Shapes shapes{{1, 1, 1, 1, 3}, {1, 1, 1, 1, 3}};
    int* const mains[] = {&shapes.main.c, &shapes.main.h, &shapes.main.w};
    int* const others[] = {&shapes.other.c, &shapes.other.h, &shapes.other.w};
    for (std::size_t i = 0; i < runs.size(); ++i) {
        const std::size_t at = 3 - runs.size() + i;
        *mains[at] = asInt(runs[i].extent);
        if (runs[i].isShared) *others[at] = asInt(runs[i].extent);
    }
    return shapes;
}

// Repeats a step, whose memory has the shared parts only, along the missing ones.
int repeated(Program& program, int step, const Parts& parts) {
    const Parts runs = runsOf(parts);
    std::int64_t before = 1, after = 1;
    for (const Part& run : runs) after *= run.isShared ? run.extent : 1;
    for (const Part& run : runs) {
        if (run.isShared) {
            before *= run.extent;
            after /= run.extent;
            continue;
        }
        const int rows = program.view(step, {1, asInt(before), 1, asInt(after), 3});
        step = program.resize(rows, asInt(run.extent), asInt(after), nolk::ResizeMode::nearest,
                              nolk::ResizeTransMode::halfPixel);
        before *= run.extent;
    }
    return step;
}

bool isUniform(const std::vector<float>& values) {
    return std::all_of(values.begin(), values.end(), [&](float v) { return v == values.front(); });
}

int record(Program& program, Binary operation, int a, int b) {
    switch (operation) {
        case Binary::add:
            return program.add(a, b);
        case Binary::sub:
            return program.sub(a, b);
        case Binary::multiply:
            return program.multiply(a, b);
        case Binary::divide:
            return program.divide(a, b);
        case Binary::max:
            return program.max(a, b);
    }
    throw std::logic_error("an unknown operation");
}

struct Pair {
    int main = -1;
    int other = -1;
};

Pair matched(Program& program, Placed& main, const Operand& other) {
    Pair pair;
    Parts parts;
    std::optional<ArrangedValues> values;
    if (other.tensor) {
        Arranged arranged = arrangedLike(program, main, *other.tensor);
        pair.other = arranged.step;
        parts = std::move(arranged.parts);
    } else {
        values = arrangedLike(main, *other.values);
        parts.swap(values->parts);
        if (isUniform(values->values)) {
            values->values.resize(1);
            for (Part& part : parts) part.isShared = false;
        }
    }
    const TensorShape current = program.shapeOf(main.step);
    std::optional<Shapes> shapes = shapesAsIs(current, parts);
    if (!shapes) shapes = shapesByRuns(parts);
    if (shapes) {
        pair.main = program.view(main.step, shapes->main);
        pair.other = values ? program.constant(shapes->other,
                                               std::make_shared<const std::vector<float>>(std::move(values->values)))
                            : program.view(pair.other, shapes->other);
        return pair;
    }
    if (values) {
        const auto count = static_cast<int>(values->values.size());
        pair.other = program.constant({1, 1, 1, count, 3},
                                      std::make_shared<const std::vector<float>>(std::move(values->values)));
    }
    pair.main = main.step;
    pair.other = program.view(repeated(program, pair.other, parts), current);
    return pair;
}

// Which of the two keeps its order of memory: one that has every element, if possible the one that is in ONNX's order.
bool secondIsMain(const Operand& a, const Operand& b, const Dims& dims) {
    const bool first = a.tensor && a.dims() == dims, second = b.tensor && b.dims() == dims;
    if (first && second) return !isInOrder(*a.tensor) && isInOrder(*b.tensor);
    return second;
}

}  // namespace

Operand operandOf(NodeLowering& n, std::size_t input) {
    if (n.isConstant(input)) return {std::nullopt, n.constant(input, "values")};
    return {n.x(input), std::nullopt};
}

Operand operandOf(Placed x) { return {std::move(x), std::nullopt}; }

Operand operandOf(Array values) { return {std::nullopt, std::move(values)}; }

Placed expanded(Program& program, const Placed& x, const Dims& dims) {
    Placed from = x;
    from.axes.insert(from.axes.begin(), dims.size() - from.rank(), {});
    if (broadcastDims(from.dims(), dims) != dims) throw std::logic_error("cannot be repeated to " + describeDims(dims));
    // New factors stand behind the place of the axis before, so that the result keeps ONNX's order where x has it.
    Placed result = from;
    Parts parts;
    for (const std::int64_t extent : from.memory()) parts.push_back({extent, true});
    int behind = 0;
    for (std::size_t i = 0; i < dims.size(); ++i) {
        for (const Factor& factor : result.axes[i]) behind = std::max(behind, factor.place + 1);
        if (dims[i] == 1 || !result.axes[i].empty()) continue;
        for (auto& axis : result.axes)
            for (Factor& factor : axis)
                if (factor.place >= behind) ++factor.place;
        result.axes[i].push_back({dims[i], behind});
        parts.insert(parts.begin() + behind, Part{dims[i], false});
        ++behind;
    }
    result.step = repeated(program, from.step, parts);
    return result;
}

Placed combined(Program& program, Binary operation, Operand a, Operand b) {
    const Dims dims = broadcastDims(a.dims(), b.dims());
    pad(a, dims.size());
    pad(b, dims.size());
    if (a.values && (b.values || a.dims() == dims) && !(b.tensor && b.dims() == dims)) {
        a.tensor = constantStep(program, *a.values);
        a.values.reset();
    }
    const bool first = a.tensor && a.dims() == dims, second = b.tensor && b.dims() == dims;
    if (!first && !second) {
        Operand& larger = a.tensor ? a : b;
        larger.tensor = expanded(program, *larger.tensor, dims);
    }
    if (secondIsMain(a, b, dims)) {
        Placed main = *b.tensor;
        // The dividend comes first, so it needs every element; of a product of -1 and a sum the order is free.
        if (operation == Binary::divide && a.dims() != dims) {
            const Placed dividend = a.tensor ? *a.tensor : constantStep(program, *a.values);
            a = operandOf(expanded(program, dividend, dims));
        }
        const bool isUniformValue = a.values && isUniform(*floatsOf(*a.values));
        if (operation == Binary::divide && isUniformValue) {
            const Placed one = constantStep(program, floatArray(Dims(dims.size(), 1), {floatsOf(*a.values)->front()}));
            a = operandOf(expanded(program, one, dims));
        }
        const Pair pair = matched(program, main, a);
        const bool isWhole = program.shapeOf(pair.other).c == program.shapeOf(pair.main).c &&
                             program.shapeOf(pair.other).h == program.shapeOf(pair.main).h &&
                             program.shapeOf(pair.other).w == program.shapeOf(pair.main).w;
        if (operation == Binary::sub && !isWhole)
            return with(main, program.add(program.times(pair.main, -1.0f), pair.other));
        if (operation == Binary::sub || operation == Binary::divide)
            return with(main, record(program, operation, pair.other, pair.main));
        return with(main, record(program, operation, pair.main, pair.other));
    }
    Placed main = *a.tensor;
    const Pair pair = matched(program, main, b);
    return with(main, record(program, operation, pair.main, pair.other));
}

}  // namespace convert
