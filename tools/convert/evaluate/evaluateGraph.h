// A whole ONNX graph, node by node.
//   Evaluation all = evaluateGraph(model, {{"x", x}});                 // all.at("y")
//   Shapes shapes = evaluateGraphShapes(model, {{"x", {2, 3, 224, 224}}});
// Throws OnnxError as evaluateNode does, and for an input that is missing.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "convert/evaluate/evaluateNode.h"
#include "convert/onnx/Model.h"

namespace convert {

struct GraphOptions {
    std::set<std::string> wanted;                            // tensors to keep, besides the graph's outputs
    bool keepAll = false;                                    // keep every tensor
    std::int64_t memoryBytes = std::int64_t{4} << 30;        // of results that exist at the same time
    std::function<void(std::size_t, std::size_t)> progress;  // nodes done, nodes in all; may be empty
};

// The tensors that are kept, by name. Others are freed after their last use.
std::map<std::string, Array> evaluateGraph(const Model& model, const std::map<std::string, Array>& inputs,
                                           const GraphOptions& options = {});

// Of all tensors, initializers included.
std::map<std::string, Value> evaluateGraphShapes(const Model& model, const std::map<std::string, Dims>& inputs);

}  // namespace convert
