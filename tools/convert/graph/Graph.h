// The network as the converter works on it: tensors with their extents and, where no input decides them, their values;
// nodes that name tensors by their place.
//   Graph graph = graphOf(model, inputDims);      // shapes and constants evaluated
//   rewrite(graph);                               // patterns to fewer, larger nodes
//   for (const Node& node : graph.nodes) ...      // in an order in which every input is made before
// Extents are those for a batch of 1: an ONNX tensor for batch 1 becomes one sample of a nolk tensor, so that the
// converted file takes any batch, whatever the file's own shapes say about it.
#pragma once

#include <onnx/onnx_pb.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "convert/graph/FloatBudget.h"
#include "convert/onnx/Array.h"
#include "convert/onnx/Model.h"

namespace convert {

struct GraphTensor {
    std::string name;
    int type = onnx::TensorProto::FLOAT;
    bool hasShape = false;  // false behind a node that nobody can evaluate, unless the file tells
    Dims dims;
    std::shared_ptr<const Array> known;  // null when it depends on an input
};

struct Node {
    onnx::NodeProto proto;        // operator, name and attributes; its inputs and outputs are not used
    std::vector<int> inputs;      // places in Graph::tensors; -1 where an optional one is left out
    std::vector<int> outputs;     // likewise
    std::string error;            // why its shapes cannot be evaluated, without the node; empty when they can
    std::string advice;           // on error, where there is some
    bool isKnownOperator = true;  // false where that is because nobody here knows the operator

    const std::string& type() const { return proto.op_type(); }
};

struct Graph {
    int opset = 0;
    std::vector<GraphTensor> tensors;
    std::vector<Node> nodes;  // those that depend on an input
    std::vector<int> inputs;
    std::vector<int> outputs;
    FloatBudget budget;  // what is left of it

    const Dims& dimsOf(int tensor) const { return tensors[static_cast<std::size_t>(tensor)].dims; }
    const Array* known(int tensor) const;  // null when tensor is -1, too
    const std::string& nameOf(int tensor) const { return tensors[static_cast<std::size_t>(tensor)].name; }
    std::string nameOf(const Node& node) const;  // the node's own, or that of the tensor that it makes
    int add(GraphTensor tensor);
};

// inputDims: for every input of the model, without free extents. Throws OnnxError for a file that contradicts itself;
// what only a node's operator forbids is kept in Node::error.
Graph graphOf(const Model& model, const std::map<std::string, Dims>& inputDims);

// Drops nodes without users, and results without users from the others.
void removeUnused(Graph& graph);

}  // namespace convert
