// A graph while rules look for patterns in it and replace nodes.
//   for (Node* node : editor.nodes())
//       rule(editor, *node);
// Rules change inputs and outputs through the editor only, which knows who makes and who uses a tensor. Nodes keep
// their addresses until the editor goes; a rule turns the last node of its pattern into the new one, and those that
// nobody uses any more are dropped at the end.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "convert/graph/Graph.h"

namespace convert {

class GraphEditor {
public:
    explicit GraphEditor(Graph& graph) : graph_(graph) { refresh(); }

    std::vector<Node>& nodes() { return graph_.nodes; }
    int opset() const { return graph_.opset; }

    // After a change of the graph that the editor has not made itself; takes a look at all nodes.
    void refresh();

    const Dims& dimsOf(int tensor) const { return graph_.dimsOf(tensor); }
    std::size_t rankOf(int tensor) const { return dimsOf(tensor).size(); }
    const Array* known(int tensor) const { return graph_.known(tensor); }
    // A constant of one element.
    std::optional<double> number(int tensor) const;
    bool isNumber(int tensor, double value) const;  // to float's accuracy

    // What makes the tensor, if it is a node of this type; null otherwise.
    const Node* maker(int tensor, const std::string& type) const;
    const Node* maker(int tensor) const;
    Node* maker(int tensor);
    // Whether the tensor has this one user only and is no output of the graph.
    bool isUsedOnce(int tensor) const;

    // The input of a node of two inputs beside this one; -1 if it is none of them.
    static int otherInput(const Node& node, int tensor);

    int addConstant(Array array);
    // Whether a changed copy of a constant can be afforded; a copy that takes the place of its only use is free.
    bool mayCopy(int constant);
    // Frees a constant that had one user, which has turned to another one.
    void release(int constant);
    // Turns a node into another one with the same result.
    void become(Node& node, const std::string& type, std::vector<int> inputs);
    void setInputs(Node& node, std::vector<int> inputs);
    // Takes the inputs and outputs from a node whose results nobody uses any more.
    void drop(Node& node);

private:
    Graph& graph_;
    std::vector<int> makers_;  // place in nodes, by tensor; -1 for none
    std::vector<int> uses_;
};

const onnx::AttributeProto* findAttribute(const Node& node, const std::string& name);
std::int64_t integerOf(const Node& node, const std::string& name, std::int64_t otherwise);
float numberOf(const Node& node, const std::string& name, float otherwise);
void setAttribute(Node& node, const std::string& name, std::int64_t value);
void setAttribute(Node& node, const std::string& name, float value);
void setAttribute(Node& node, const std::string& name, const std::vector<std::int64_t>& values);

// Sorted axes of a reduction over a tensor of this rank; nothing when they are not known.
std::optional<std::vector<std::int64_t>> reducedAxesOf(const GraphEditor& editor, const Node& node);

}  // namespace convert
