#include "convert/evaluate/evaluateNode.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "convert/evaluate/Operator.h"
#include "convert/onnx/Model.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

using Table = std::unordered_map<std::string, const Operator*>;

Table makeTable() {
    Table table;
    for (const auto* rows :
         {&convolutionOperators(), &elementOperators(), &indexOperators(), &matrixOperators(),
          &normalizationOperators(), &poolingOperators(), &recurrentOperators(), &reductionOperators(),
          &resizeOperators(), &shapeOperators(), &sliceOperators(), &unaryOperators(), &unconvertedOperators()})
        for (const Operator& row : *rows) table.emplace(row.name, &row);
    return table;
}

const Table& table() {
    static const Table all = makeTable();
    return all;
}

const Operator& operatorOf(const onnx::NodeProto& node) {
    if (!node.domain().empty()) throw UnknownOperator("belongs to " + inQuotes(node.domain()) + ", not to ONNX itself");
    const auto row = table().find(node.op_type());
    if (row == table().end()) throw UnknownOperator("the operator is not known");
    return *row->second;
}

template <typename Function>
auto withNodeName(const onnx::NodeProto& node, Function&& function) -> decltype(function()) {
    try {
        return function();
    } catch (const UnknownOperator& error) {
        throw UnknownOperator(describeNode(node) + ": " + error.what(), error.advice);
    } catch (const OnnxError& error) {
        throw OnnxError(describeNode(node) + ": " + error.what(), error.advice);
    }
}

Values shapesOf(const Operator& row, const Call& call) {
    Values results = row.shapes(call);
    results.resize(std::max(results.size(), call.outputCount()));
    for (const Value& result : results)
        need(elementCount(result.dims) <= kLargestResult,
             "makes " + describeDims(result.dims) + ", more than " + std::to_string(kLargestResult) + " elements");
    return results;
}

void checkMemory(const Values& results, std::int64_t memoryBytes) {
    // A value and its sum in double, or an integer and one more while it is made.
    constexpr std::int64_t kForEachFloat = 12, kForEachInteger = 16;
    std::int64_t bytes = 0;
    for (const Value& result : results)
        bytes += elementCount(result.dims) * (isFloatType(result.type) ? kForEachFloat : kForEachInteger);
    need(bytes <= memoryBytes, "checking needs too much memory for " + describeDims(results.front().dims) +
                                   ": leave the check out by --no-check");
}

bool allKnown(const std::vector<const Value*>& inputs) {
    return std::all_of(inputs.begin(), inputs.end(), [](const Value* v) { return v == nullptr || v->known; });
}

bool allSmall(const Values& values, std::int64_t largest) {
    return std::all_of(values.begin(), values.end(), [&](const Value& v) { return elementCount(v.dims) <= largest; });
}

Array emptyOf(const Value& value) {
    if (isFloatType(value.type)) return {value.type, value.dims, std::vector<float>()};
    return {value.type, value.dims, std::vector<std::int64_t>()};
}

Arrays computed(const Operator& row, const Call& call, const Values& results) {
    for (std::size_t i = 0; i < call.outputCount(); ++i)
        if (call.wants(i) && i >= results.size()) throw OnnxError("has too many outputs", kAgainstOnnx);
    for (const Value& result : results) call.takeWork(static_cast<double>(elementCount(result.dims)));
    Arrays arrays;
    if (allSmall(results, 0))  // other extents may be huge
        for (const Value& result : results) arrays.push_back(emptyOf(result));
    else
        arrays = row.compute(call, results);
    arrays.resize(std::max(arrays.size(), call.outputCount()));
    return arrays;
}

}  // namespace

Value Value::of(Array array) {
    const int type = array.type();
    Dims dims = array.dims();
    return {type, std::move(dims), std::make_shared<const Array>(std::move(array))};
}

std::vector<Array> evaluateNode(const onnx::NodeProto& node, int opset, const std::vector<const Array*>& inputs,
                                Work& work, std::int64_t memoryBytes) {
    std::vector<Value> values(inputs.size());
    std::vector<const Value*> pointers(inputs.size(), nullptr);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (inputs[i] == nullptr) continue;
        values[i] = Value::of(*inputs[i]);
        pointers[i] = &values[i];
    }
    return withNodeName(node, [&] {
        const Operator& row = operatorOf(node);
        const Call call{node, opset, pointers, work.left};
        const Values results = shapesOf(row, call);
        if (!results.empty()) checkMemory(results, memoryBytes);
        return computed(row, call, results);
    });
}

std::vector<Value> evaluateShapes(const onnx::NodeProto& node, int opset, const std::vector<const Value*>& inputs,
                                  Work& work, std::int64_t largestKnown) {
    return withNodeName(node, [&] {
        const Operator& row = operatorOf(node);
        const Call call{node, opset, inputs, work.left};
        Values results = shapesOf(row, call);
        const bool needsShapesOnly = node.op_type() == "Shape" || node.op_type() == "Size";
        if (needsShapesOnly || (allKnown(inputs) && allSmall(results, largestKnown))) {
            Arrays arrays = computed(row, call, results);
            for (std::size_t i = 0; i < arrays.size(); ++i) results[i] = Value::of(std::move(arrays[i]));
        }
        return results;
    });
}

}  // namespace convert
