// The plain meaning of one node of an ONNX graph: of its values, or of its shapes alone.
//   std::vector<Array> results = evaluateNode(node, model.opset, {&x, &weights, nullptr}, work);
//   std::vector<Value> shapes = evaluateShapes(node, model.opset, {&xValue, &weightsValue, nullptr}, work);
// Every operator is written after ONNX's own definition, in loops over elements with sums in double. Nothing is shared
// with the lowering, which is checked against it.
// An input is null where the node leaves an optional one out. Both functions throw OnnxError, "node 'conv1' (Conv):
// why"; an operator that is not known makes them throw UnknownOperator.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "convert/onnx/Array.h"
#include "convert/onnx/OnnxError.h"

namespace convert {

// An operator, or an opset's form of it, that is not known here.
struct UnknownOperator : OnnxError {
    using OnnxError::OnnxError;
};

// Results of more elements are refused, so that a small file cannot take all memory.
constexpr std::int64_t kLargestResult = std::int64_t{1} << 28;

// Multiply-adds that may be spent, on all nodes for which it is handed over. Elements of results count as one each.
struct Work {
    double left = 5e11;
};

// What is computed in advance takes seconds at most.
constexpr Work kWorkInAdvance{2e9};

// One for each output of the node, those that it leaves out included. They are refused if making them takes more
// memory.
std::vector<Array> evaluateNode(const onnx::NodeProto& node, int opset, const std::vector<const Array*>& inputs,
                                Work& work, std::int64_t memoryBytes = std::int64_t{4} << 30);

// What is known of a tensor before a run: always its type and its extents, sometimes its values.
struct Value {
    int type = onnx::TensorProto::FLOAT;
    Dims dims;
    std::shared_ptr<const Array> known;  // null: depends on an input, or is too large to be computed in advance

    static Value of(Array array);
};

// The results' types and extents. Values are computed where all inputs are known and a result is small (shapes,
// indices: up to kLargestKnown elements), and by Shape and Size always.
constexpr std::int64_t kLargestKnown = 4096;
std::vector<Value> evaluateShapes(const onnx::NodeProto& node, int opset, const std::vector<const Value*>& inputs,
                                  Work& work, std::int64_t largestKnown = kLargestKnown);

}  // namespace convert
