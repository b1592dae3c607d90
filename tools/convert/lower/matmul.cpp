// Matrix products.
#include "convert/lower/matmul.h"

#include <algorithm>
#include <numeric>

#include "convert/lower/broadcast.h"
#include "convert/lower/operators.h"

namespace convert {

namespace {

Floats transposedMatrix(const Floats& values, std::size_t rows, std::size_t columns) {
    std::vector<float> result(values->size());
    for (std::size_t i = 0; i < rows; ++i)
        for (std::size_t k = 0; k < columns; ++k) result[k * rows + i] = (*values)[i * columns + k];
    return std::make_shared<const std::vector<float>>(std::move(result));
}

std::int64_t countOf(const Dims& dims) {
    return std::accumulate(dims.begin(), dims.end(), std::int64_t{1}, std::multiplies<>());
}

}  // namespace

Floats Matrix::inOrder() const { return isTransposed ? transposedMatrix(values, columns, rows) : values; }

Floats Matrix::transposed() const { return isTransposed ? values : transposedMatrix(values, rows, columns); }

Placed product(Program& program, const Placed& x, const Matrix& matrix, const Floats& bias) {
    const std::size_t last = x.rank() - 1;
    Dims dims = x.dims();
    const int in = asInt(dims[last]), out = asInt(static_cast<std::int64_t>(matrix.columns));
    const std::int64_t lines = countOf(dims) / in;
    dims[last] = out;
    Axes others(last);
    std::iota(others.begin(), others.end(), 0);
    if (lines == 1) {
        const int features = program.view(arranged(program, x, {others, {static_cast<int>(last)}}), {1, in, 1, 1, 3});
        return placed(program.fullConnect(features, {1, out, in, 1, 1, matrix.transposed(), bias}), dims);
    }
    // Features that lie outermost already are channels of a convolution.
    const bool isOutermost = !x.axes[last].empty() && x.axes[last].front().place == 0 && x.axes[last].size() == 1;
    if (isOutermost) {
        // The others keep their order of memory.
        const nolk::TensorShape shape = program.shapeOf(x.step);
        const int step = shape.c == in ? x.step : program.view(x.step, {1, in, 1, asInt(lines), 3});
        const int convolved = program.convolve(step, {}, {1, 1}, {1, 1}, {1, out, in, 1, 1, matrix.transposed(), bias});
        Placed result = x;
        result.step = convolved;
        if (out == 1) {
            result.axes[last].clear();
            for (auto& axis : result.axes)
                for (Factor& factor : axis) --factor.place;
        } else {
            result.axes[last].front().extent = out;
        }
        return result;
    }
    const int rows = arranged(program, x, {{}, others, {static_cast<int>(last)}});
    int step = program.matMul(rows, program.constant({1, 1, in, out, 3}, matrix.inOrder()));
    if (bias) step = program.add(step, program.constant({1, 1, 1, out, 3}, bias));
    return placed(step, dims);
}

namespace {

Placed swappedLast(const Placed& x) {
    std::vector<int> perm(x.rank());
    std::iota(perm.begin(), perm.end(), 0);
    std::swap(perm[perm.size() - 1], perm[perm.size() - 2]);
    return permuted(x, perm);
}

// Planes of a times planes of b; both have at least two axes.
Placed planeProduct(NodeLowering& n, Placed a, Placed b) {
    const std::size_t rank = std::max(a.rank(), b.rank());
    a.axes.insert(a.axes.begin(), rank - a.rank(), {});
    b.axes.insert(b.axes.begin(), rank - b.rank(), {});
    Dims dims(rank);
    const Dims da = a.dims(), db = b.dims();
    for (std::size_t i = 0; i < rank; ++i) dims[i] = std::max(da[i], db[i]);
    Axes planes(rank - 2);
    std::iota(planes.begin(), planes.end(), 0);
    const int h = static_cast<int>(rank) - 2, w = static_cast<int>(rank) - 1;
    // A single plane of b serves all rows of a.
    if (countOf(db) == db[rank - 2] * db[rank - 1]) {
        Axes rows = planes;
        rows.push_back(h);
        const int left = arranged(n.program, a, {{}, rows, {w}}), right = arranged(n.program, b, {planes, {h}, {w}});
        dims[rank - 2] = da[rank - 2];
        dims[rank - 1] = db[rank - 1];
        return placed(n.program.matMul(left, right), dims);
    }
    Dims wholeA = dims, wholeB = dims;
    wholeA[rank - 2] = da[rank - 2];
    wholeA[rank - 1] = da[rank - 1];
    wholeB[rank - 2] = db[rank - 2];
    wholeB[rank - 1] = db[rank - 1];
    if (da != wholeA) a = expanded(n.program, a, wholeA);
    if (db != wholeB) b = expanded(n.program, b, wholeB);
    const int left = arranged(n.program, a, {planes, {h}, {w}}), right = arranged(n.program, b, {planes, {h}, {w}});
    dims[rank - 2] = da[rank - 2];
    dims[rank - 1] = db[rank - 1];
    return placed(n.program.matMul(left, right), dims);
}

Matrix matrixOf(const Array& array, bool isTransposed) {
    const auto first = static_cast<std::size_t>(array.dims()[0]), second = static_cast<std::size_t>(array.dims()[1]);
    return {floatsOf(array), isTransposed ? second : first, isTransposed ? first : second, isTransposed};
}

Placed scaled(Program& program, const Placed& x, float factor) { return with(x, program.times(x.step, factor)); }

Floats scaledValues(const Floats& values, float factor) {
    if (factor == 1.0f) return values;
    std::vector<float> result(*values);
    for (float& value : result) value *= factor;
    return std::make_shared<const std::vector<float>>(std::move(result));
}

}  // namespace

// The rewriting adds a bias as a third input. A vector is a matrix with one row on the left, with one column on the
// right.
void lowerMatMul(NodeLowering& n) {
    const Dims &a = n.dims(0), &b = n.dims(1);
    if (n.isConstant(1) && b.size() == 2)
        return n.result(product(n.program, n.x(0), matrixOf(n.constant(1, "the matrix"), false),
                                n.has(2) ? n.floats(2, "the bias") : nullptr));
    if (n.isConstant(0) && a.size() == 2 && b.size() >= 2) {
        // (b^T a^T)^T
        const Placed right = swappedLast(n.x(1));
        return n.result(swappedLast(product(n.program, right, matrixOf(n.constant(0, "the matrix"), true), nullptr)));
    }
    Placed left = n.x(0), right = n.x(1);
    if (a.size() == 1) left.axes.insert(left.axes.begin(), std::vector<Factor>{});
    if (b.size() == 1) right.axes.emplace_back();
    n.result(reshapedAlways(n.program, planeProduct(n, left, right), n.outDims()));
}

void lowerGemm(NodeLowering& n) {
    const float alpha = n.number("alpha", 1.0f), beta = n.number("beta", 1.0f);
    const bool transA = n.integer("transA", 0) != 0, transB = n.integer("transB", 0) != 0;
    Placed a = n.x(0);
    if (transA) a = swappedLast(a);
    const bool hasSum = n.has(2) && beta != 0.0f;
    Placed result;
    bool isAdded = false;
    if (n.isConstant(1)) {
        Matrix matrix = matrixOf(n.constant(1, "the matrix"), transB);
        matrix.values = scaledValues(matrix.values, alpha);
        Floats bias;
        if (hasSum && n.isConstant(2) && n.constant(2, "C").count() == static_cast<std::int64_t>(matrix.columns) &&
            (n.dims(2).empty() || n.dims(2).back() == static_cast<std::int64_t>(matrix.columns))) {
            bias = scaledValues(n.floats(2, "C"), beta);
            isAdded = true;
        }
        result = product(n.program, a, matrix, bias);
    } else {
        Placed b = n.x(1);
        if (transB) b = swappedLast(b);
        result = scaled(n.program, planeProduct(n, a, b), alpha);
    }
    if (hasSum && !isAdded) {
        Operand c = operandOf(n, 2);
        if (c.values)
            c.values = floatArray(c.values->dims(), *scaledValues(floatsOf(*c.values), beta));
        else
            c.tensor = scaled(n.program, *c.tensor, beta);
        result = combined(n.program, Binary::add, operandOf(result), c);
    }
    n.result(result);
}

}  // namespace convert
