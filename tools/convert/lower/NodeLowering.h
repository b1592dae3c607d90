// One node while it becomes operations of the file: its inputs, its attributes and where its results go.
//   void lowerElu(NodeLowering& n) {
//       const Placed x = n.x(0);
//       n.result(with(x, elu(n.program, x.step, n.number("alpha", 1.0f))));
//   }
// A function that lowers an operator reads inputs through this, records steps in `program` and sets every result that
// is used. What has no form in a nolk file it refuses, with what a user can do about it.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "convert/graph/Graph.h"
#include "convert/lower/Placed.h"

namespace convert {

// Why a node cannot be converted, and what to do instead.
struct Refusal : std::runtime_error {
    Refusal(const std::string& why, std::string whatToDo) : std::runtime_error(why), advice(std::move(whatToDo)) {}
    std::string advice;
};

class NodeLowering {
public:
    NodeLowering(const Graph& graph, const Node& node, std::vector<std::optional<Placed>>& values, Program& target)
        : program(target), graph_(graph), node_(node), values_(values) {}

    Program& program;

    const std::string& type() const { return node_.type(); }
    int opset() const { return graph_.opset; }

    std::size_t inputCount() const { return node_.inputs.size(); }
    bool has(std::size_t input) const { return input < node_.inputs.size() && node_.inputs[input] >= 0; }
    bool isConstant(std::size_t input) const { return has(input) && graph_.known(node_.inputs[input]) != nullptr; }
    const Dims& dims(std::size_t input) const { return graph_.dimsOf(node_.inputs.at(input)); }
    int inputType(std::size_t input) const;
    // The tensor in the network; a constant becomes a step of its own.
    Placed x(std::size_t input);
    // Values that must not depend on the network's inputs; `what` names them in the refusal.
    const Array& constant(std::size_t input, const char* what) const;
    Floats floats(std::size_t input, const char* what) const;
    std::vector<std::int64_t> integers(std::size_t input, const char* what) const;

    std::size_t outputCount() const { return node_.outputs.size(); }
    bool wants(std::size_t output) const { return output < node_.outputs.size() && node_.outputs[output] >= 0; }
    const Dims& outDims(std::size_t output = 0) const;  // refuses an output without a name
    void result(Placed value, std::size_t output = 0);

    const onnx::AttributeProto* attribute(const std::string& name) const;
    std::int64_t integer(const std::string& name, std::int64_t otherwise) const;
    float number(const std::string& name, float otherwise) const;
    std::string text(const std::string& name, const std::string& otherwise) const;
    std::vector<std::int64_t> integerList(const std::string& name, std::vector<std::int64_t> otherwise = {}) const;
    // An axis attribute of a tensor of this rank, counted from the front.
    std::size_t axis(std::int64_t given, std::size_t rank) const;
    // Axes from an attribute or, where opsets moved it, from an input.
    std::vector<std::int64_t> axesOf(std::size_t input) const;

    [[noreturn]] void refuse(const std::string& why, const std::string& advice = {}) const;

private:
    const Graph& graph_;
    const Node& node_;
    std::vector<std::optional<Placed>>& values_;
};

// Another step in x's place, of the same elements in the same order.
Placed with(Placed x, int step);

// Values as floats, integers too.
Floats floatsOf(const Array& array);

// A constant as a step, in ONNX's order.
Placed constantStep(Program& program, const Array& array);

int asInt(std::int64_t value);  // throws std::out_of_range

}  // namespace convert
