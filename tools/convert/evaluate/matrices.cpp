#include <algorithm>
#include <cstdint>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/Einsum.h"

namespace convert {

namespace {

// y = alpha * A' * B' + beta * C
struct Product {
    std::int64_t rows = 0, inner = 0, columns = 0;
    bool transA = false, transB = false;
};

Product gemmOf(const Call& call) {
    need(call.rank(0) == 2 && call.rank(1) == 2,
         "expects matrices, got " + describeDims(call.dims(0)) + " and " + describeDims(call.dims(1)));
    Product product;
    product.transA = call.intAttribute("transA", 0) != 0;
    product.transB = call.intAttribute("transB", 0) != 0;
    product.rows = call.dims(0)[product.transA ? 1 : 0];
    product.inner = call.dims(0)[product.transA ? 0 : 1];
    product.columns = call.dims(1)[product.transB ? 0 : 1];
    need(call.dims(1)[product.transB ? 1 : 0] == product.inner,
         describeDims(call.dims(0)) + " and " + describeDims(call.dims(1)) + " do not fit");
    return product;
}

Values gemmShapes(const Call& call) {
    const Product product = gemmOf(call);
    Dims dims{product.rows, product.columns};
    if (call.has(2)) need(broadcastDims(call.dims(2), dims) == dims, "C does not broadcast to the result");
    return {valueOf(call.in(0).type, std::move(dims))};
}

Arrays computeGemm(const Call& call, const Values& results) {
    const Product p = gemmOf(call);
    call.takeWork(static_cast<double>(p.rows * p.columns) * static_cast<double>(p.inner));
    const double alpha = call.floatAttribute("alpha", 1), beta = call.floatAttribute("beta", 1);
    const std::vector<float>&a = call.floats(0), &b = call.floats(1);
    std::vector<double> sums;
    for (std::int64_t row = 0; row < p.rows; ++row)
        for (std::int64_t column = 0; column < p.columns; ++column) {
            double sum = 0;
            for (std::int64_t i = 0; i < p.inner; ++i)
                sum +=
                    static_cast<double>(a[static_cast<std::size_t>(p.transA ? i * p.rows + row : row * p.inner + i)]) *
                    b[static_cast<std::size_t>(p.transB ? column * p.inner + i : i * p.columns + column)];
            sums.push_back(alpha * sum);
        }
    if (call.has(2)) {
        const std::vector<float>& c = call.floats(2);
        std::size_t i = 0;
        forEachOffset(results[0].dims, broadcastSteps(call.dims(2), results[0].dims),
                      [&](std::int64_t offset) { sums[i++] += beta * c[static_cast<std::size_t>(offset)]; });
    }
    return {{results[0].type, results[0].dims, std::vector<float>(sums.begin(), sums.end())}};
}

// MatMul: matrices in the last two dimensions, the others broadcast. A tensor of one dimension is a row on the left and
// a column on the right, and that dimension is missing in the result.
struct MatMul {
    Dims a, b, outer, result;
};

MatMul matMulOf(const Call& call) {
    MatMul mul{call.dims(0), call.dims(1), {}, {}};
    need(!mul.a.empty() && !mul.b.empty(), "expects matrices");
    need(!call.has(2), "expects 2 inputs");
    const bool rowAlone = mul.a.size() == 1, columnAlone = mul.b.size() == 1;
    if (rowAlone) mul.a.insert(mul.a.begin(), 1);
    if (columnAlone) mul.b.push_back(1);
    need(mul.a.back() == mul.b[mul.b.size() - 2],
         describeDims(call.dims(0)) + " and " + describeDims(call.dims(1)) + " do not fit");
    mul.outer = broadcastDims(Dims(mul.a.begin(), mul.a.end() - 2), Dims(mul.b.begin(), mul.b.end() - 2));
    mul.result = mul.outer;
    if (!rowAlone) mul.result.push_back(mul.a[mul.a.size() - 2]);
    if (!columnAlone) mul.result.push_back(mul.b.back());
    return mul;
}

Values matMulShapes(const Call& call) { return {valueOf(call.in(0).type, matMulOf(call).result)}; }

Arrays computeMatMul(const Call& call, const Values& results) {
    const MatMul mul = matMulOf(call);
    const std::int64_t rows = mul.a[mul.a.size() - 2], inner = mul.a.back(), columns = mul.b.back();
    call.takeWork(static_cast<double>(elementCount(results[0].dims)) * static_cast<double>(inner));
    const auto steps = [&](const Dims& own, std::int64_t matrix) {
        std::vector<std::int64_t> all = broadcastSteps(Dims(own.begin(), own.end() - 2), mul.outer);
        for (std::int64_t& step : all) step *= matrix;
        return all;
    };
    std::vector<std::int64_t> offsetsOfB;
    forEachOffset(mul.outer, steps(mul.b, inner * columns), [&](std::int64_t offset) { offsetsOfB.push_back(offset); });
    std::vector<float> values;
    std::size_t plane = 0;
    std::vector<double> sums(static_cast<std::size_t>(columns));
    forEachOffset(mul.outer, steps(mul.a, rows * inner), [&](std::int64_t offset) {
        const float *a = call.floats(0).data() + offset, *b = call.floats(1).data() + offsetsOfB[plane++];
        for (std::int64_t row = 0; row < rows; ++row) {
            std::fill(sums.begin(), sums.end(), 0);
            for (std::int64_t i = 0; i < inner; ++i)
                for (std::int64_t column = 0; column < columns; ++column)
                    sums[static_cast<std::size_t>(column)] +=
                        static_cast<double>(a[row * inner + i]) * b[i * columns + column];
            values.insert(values.end(), sums.begin(), sums.end());
        }
    });
    return {{results[0].type, results[0].dims, std::move(values)}};
}

Einsum equationOf(const Call& call) {
    std::vector<Dims> inputs;
    for (std::size_t i = 0; i < call.inputCount(); ++i) inputs.push_back(call.dims(i));
    need(!inputs.empty(), "has no input");
    return einsumOf(call.stringAttribute("equation", ""), inputs);
}

Values einsumShapes(const Call& call) { return {valueOf(call.in(0).type, equationOf(call).resultDims())}; }

// The next index, and the operands' offsets there.
void advance(const Dims& dims, Dims& index, const std::vector<std::vector<std::int64_t>>& steps,
             std::vector<std::int64_t>& offsets) {
    for (std::size_t axis = dims.size(); axis-- > 0;) {
        const bool isInside = ++index[axis] < dims[axis];
        for (std::size_t k = 0; k < offsets.size(); ++k) offsets[k] += steps[k][axis] * (isInside ? 1 : 1 - dims[axis]);
        if (isInside) return;
        index[axis] = 0;
    }
}

// Every element is the sum, over all indices of the labels that the result lacks, of the product of the operands.
Arrays computeEinsum(const Call& call, const Values& results) {
    const Einsum einsum = equationOf(call);
    std::vector<int> labels = einsum.result;
    for (std::size_t label = 0; label < einsum.extents.size(); ++label)
        if (std::count(labels.begin(), labels.end(), static_cast<int>(label)) == 0)
            labels.push_back(static_cast<int>(label));
    Dims dims;
    constexpr double kStepsForEach = 12;  // finding the operands' elements takes longer than their product
    double work = kStepsForEach * static_cast<double>(call.inputCount());
    for (const int label : labels) {
        dims.push_back(einsum.extents[static_cast<std::size_t>(label)]);
        work *= static_cast<double>(dims.back());
    }
    call.takeWork(work);
    std::vector<std::vector<std::int64_t>> steps;
    for (std::size_t i = 0; i < call.inputCount(); ++i) {
        const std::vector<std::int64_t> strides = stridesOf(call.dims(i));
        steps.emplace_back(labels.size(), 0);
        for (std::size_t axis = 0; axis < strides.size(); ++axis) {
            const auto at = std::find(labels.begin(), labels.end(), einsum.operands[i][axis]) - labels.begin();
            if (call.dims(i)[axis] != 1) steps.back()[static_cast<std::size_t>(at)] += strides[axis];
        }
    }
    const std::int64_t count = elementCount(results[0].dims), terms = elementCount(dims) / count;
    std::vector<std::int64_t> offsets(call.inputCount(), 0);
    Dims index(dims.size(), 0);
    std::vector<float> values;
    for (std::int64_t i = 0; i < count; ++i) {
        double sum = 0;
        for (std::int64_t term = 0; term < terms; ++term) {
            double product = 1;
            for (std::size_t k = 0; k < offsets.size(); ++k)
                product *= static_cast<double>(call.floats(k)[static_cast<std::size_t>(offsets[k])]);
            sum += product;
            advance(dims, index, steps, offsets);
        }
        values.push_back(static_cast<float>(sum));
    }
    return {{results[0].type, results[0].dims, std::move(values)}};
}

}  // namespace

const std::vector<Operator>& matrixOperators() {
    static const std::vector<Operator> rows = {
        {"Einsum", einsumShapes, computeEinsum},
        {"Gemm", gemmShapes, computeGemm},
        {"MatMul", matMulShapes, computeMatMul},
    };
    return rows;
}

}  // namespace convert
