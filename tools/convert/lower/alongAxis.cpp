#include "convert/lower/alongAxis.h"

#include <algorithm>
#include <stdexcept>

#include "convert/lower/NodeLowering.h"

namespace convert {

namespace {

// Neighbouring indices that go up by one.
struct Run {
    std::int64_t start;
    std::int64_t count;
};

std::vector<Run> runsOf(const std::vector<std::int64_t>& indices) {
    std::vector<Run> runs;
    for (const std::int64_t index : indices) {
        if (!runs.empty() && runs.back().start + runs.back().count == index)
            ++runs.back().count;
        else
            runs.push_back({index, 1});
    }
    return runs;
}

// Every step-th element of a whole axis: one column of [before * count, step, after], without cutting the end.
std::optional<Placed> takenAsColumn(Program& program, const Placed& x, std::size_t axis, std::int64_t start,
                                    std::int64_t count, std::int64_t step) {
    const std::int64_t extent = x.dims()[axis];
    if (step <= 1 || extent % step != 0 || count != extent / step || start >= step) return std::nullopt;
    Dims apart = x.dims();
    apart[axis] = count;
    apart.insert(apart.begin() + static_cast<std::ptrdiff_t>(axis) + 1, step);
    const std::optional<Placed> cut = reshaped(x, apart);
    if (!cut) return std::nullopt;
    const Along lines = along(program, *cut, axis + 1);
    Placed result = backAlong(program, lines, program.slice(lines.step, lines.line, asInt(start), 1));
    result.axes.erase(result.axes.begin() + static_cast<std::ptrdiff_t>(axis) + 1);
    return result;
}

}  // namespace

Placed taken(Program& program, const Placed& x, std::size_t axis, std::int64_t start, std::int64_t count,
             std::int64_t step) {
    if (start == 0 && step == 1 && count == x.dims()[axis]) return x;
    if (step < 1 || count == 1) {
        program.requireFloats(2 * count);  // an index is as large as two floats
        std::vector<std::int64_t> indices;
        for (std::int64_t i = 0; i < count; ++i) indices.push_back(start + i * step);
        if (count > 1) return gathered(program, x, axis, indices);
        step = 1;
    }
    if (const auto column = takenAsColumn(program, x, axis, start, count, step)) return *column;
    const Along lines = along(program, x, axis);
    return backAlong(program, lines, program.slice(lines.step, lines.line, asInt(start), asInt(count), asInt(step)));
}

Placed gathered(Program& program, const Placed& x, std::size_t axis, const std::vector<std::int64_t>& indices) {
    if (indices.empty()) throw std::out_of_range("an empty result");
    const std::vector<Run> runs = runsOf(indices);
    const std::int64_t extent = x.dims()[axis];
    constexpr std::size_t kMostRuns = 64;
    constexpr std::int64_t kLargestMatrix = 1 << 22;
    if (runs.size() > kMostRuns && static_cast<std::int64_t>(indices.size()) * extent <= kLargestMatrix) {
        program.requireFloats(static_cast<std::int64_t>(indices.size()) * extent);
        std::vector<float> matrix(indices.size() * static_cast<std::size_t>(extent), 0.0f);
        for (std::size_t i = 0; i < indices.size(); ++i)
            matrix[i * static_cast<std::size_t>(extent) + static_cast<std::size_t>(indices[i])] = 1.0f;
        return mapped(program, x, axis, std::move(matrix), asInt(static_cast<std::int64_t>(indices.size())));
    }
    constexpr std::size_t kMostParts = 8192;  // of the records of a file
    if (runs.size() > kMostParts) throw std::out_of_range(std::to_string(runs.size()) + " separate ranges of indices");
    const Along lines = along(program, x, axis);
    std::vector<int> parts;
    for (const Run& run : runs)
        parts.push_back(program.slice(lines.step, lines.line, asInt(run.start), asInt(run.count)));
    return backAlong(program, lines, program.concat(parts, lines.line));
}

Placed mapped(Program& program, const Placed& x, std::size_t axis, std::vector<float> matrix, int rows) {
    // The axis goes last, so that the matrix stands on the right, once for all planes.
    std::vector<int> perm;
    for (std::size_t i = 0; i < x.rank(); ++i)
        if (i != axis) perm.push_back(static_cast<int>(i));
    perm.push_back(static_cast<int>(axis));
    const Placed last = permuted(x, perm);
    Axes others(x.rank() - 1);
    for (std::size_t i = 0; i < others.size(); ++i) others[i] = static_cast<int>(i);
    const int extent = asInt(x.dims()[axis]);
    const int lines = arranged(program, last, {{}, others, {static_cast<int>(x.rank()) - 1}});
    std::vector<float> transposed(matrix.size());
    for (std::size_t i = 0; i < static_cast<std::size_t>(rows); ++i)
        for (std::size_t k = 0; k < static_cast<std::size_t>(extent); ++k)
            transposed[k * static_cast<std::size_t>(rows) + i] = matrix[i * static_cast<std::size_t>(extent) + k];
    const int constant =
        program.constant({1, 1, extent, rows, 3}, std::make_shared<const std::vector<float>>(std::move(transposed)));
    Dims dims = last.dims();
    dims.back() = rows;
    std::vector<int> back(perm.size());
    for (std::size_t i = 0; i < perm.size(); ++i) back[static_cast<std::size_t>(perm[i])] = static_cast<int>(i);
    return permuted(placed(program.matMul(lines, constant), dims), back);
}

}  // namespace convert
