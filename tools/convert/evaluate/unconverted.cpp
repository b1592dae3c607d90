// Shapes of operators that the converter refuses, so that it can judge the nodes behind them, too. Nothing is computed.
#include "convert/evaluate/Operator.h"

namespace convert {

namespace {

using onnx::TensorProto;

Arrays notComputed(const Call&, const Values&) { refuse("is not evaluated"); }

void needRank(const Call& call, std::size_t input, int rank) {
    need(call.rank(input) == rank,
         "input of shape " + describeDims(call.dims(input)) + ", instead of " + std::to_string(rank) + " dimensions");
}

// x [n, c, h, w], grid [n, rows, columns, 2]
Values gridSampleShapes(const Call& call) {
    needRank(call, 0, 4);
    needRank(call, 1, 4);
    const Dims &x = call.dims(0), &grid = call.dims(1);
    return {valueOf(call.in(0).type, {x[0], x[1], grid[1], grid[2]})};
}

// x [time, n, features], R [directions, gates * hidden, hidden]
Values recurrentShapes(const Call& call) {
    needRank(call, 0, 3);
    needRank(call, 2, 3);
    const Dims &x = call.dims(0), &r = call.dims(2);
    return {valueOf(call.in(0).type, {x[0], r[0], x[1], r[2]}), valueOf(call.in(0).type, {r[0], x[1], r[2]})};
}

Values topKShapes(const Call& call) {
    constexpr int kInput = 10;  // the opset from which k is an input
    const auto axis = static_cast<std::size_t>(call.axis("axis", -1, call.rank(0)));
    const double k = call.opset < kInput ? static_cast<double>(call.intAttribute("k", 0)) : call.scalar(1, "K");
    Dims dims = call.dims(0);
    need(k >= 0 && k <= static_cast<double>(dims[axis]), "K is outside the axis");
    dims[axis] = static_cast<std::int64_t>(k);
    return {valueOf(call.in(0).type, dims), valueOf(TensorProto::INT64, dims)};
}

Values quantizedShapes(const Call& call) {
    return {valueOf(call.has(2) ? call.in(2).type : TensorProto::UINT8, call.dims(0))};
}

Values dequantizedShapes(const Call& call) { return {valueOf(TensorProto::FLOAT, call.dims(0))}; }

}  // namespace

const std::vector<Operator>& unconvertedOperators() {
    static const std::vector<Operator> rows = {
        {"DequantizeLinear", dequantizedShapes, notComputed},
        {"GRU", recurrentShapes, notComputed},
        {"GridSample", gridSampleShapes, notComputed},
        {"QuantizeLinear", quantizedShapes, notComputed},
        {"RNN", recurrentShapes, notComputed},
        {"TopK", topKShapes, notComputed},
    };
    return rows;
}

}  // namespace convert
