#include "convert/graph/GraphEditor.h"

#include <algorithm>
#include <cmath>

namespace convert {

void GraphEditor::refresh() {
    makers_.assign(graph_.tensors.size(), -1);
    uses_.assign(graph_.tensors.size(), 0);
    for (std::size_t i = 0; i < graph_.nodes.size(); ++i) {
        for (const int output : graph_.nodes[i].outputs)
            if (output >= 0) makers_[static_cast<std::size_t>(output)] = static_cast<int>(i);
        for (const int input : graph_.nodes[i].inputs)
            if (input >= 0) ++uses_[static_cast<std::size_t>(input)];
    }
    for (const int output : graph_.outputs) uses_[static_cast<std::size_t>(output)] += 2;
}

std::optional<double> GraphEditor::number(int tensor) const {
    const Array* array = known(tensor);
    if (array == nullptr || array->count() != 1) return std::nullopt;
    return array->isFloat() ? static_cast<double>(array->floats().front()) : static_cast<double>(array->ints().front());
}

bool GraphEditor::isNumber(int tensor, double value) const {
    const auto found = number(tensor);
    return found && std::fabs(*found - value) <= 1e-6 * std::max(std::fabs(value), 1e-6);
}

const Node* GraphEditor::maker(int tensor) const {
    if (tensor < 0 || static_cast<std::size_t>(tensor) >= makers_.size()) return nullptr;
    const int place = makers_[static_cast<std::size_t>(tensor)];
    if (place < 0) return nullptr;
    const Node& node = graph_.nodes[static_cast<std::size_t>(place)];
    return node.error.empty() ? &node : nullptr;
}

Node* GraphEditor::maker(int tensor) { return const_cast<Node*>(static_cast<const GraphEditor*>(this)->maker(tensor)); }

const Node* GraphEditor::maker(int tensor, const std::string& type) const {
    const Node* node = maker(tensor);
    return node != nullptr && node->type() == type ? node : nullptr;
}

bool GraphEditor::isUsedOnce(int tensor) const { return uses_[static_cast<std::size_t>(tensor)] == 1; }

int GraphEditor::otherInput(const Node& node, int tensor) {
    if (node.inputs.size() != 2) return -1;
    if (node.inputs[0] == tensor) return node.inputs[1];
    return node.inputs[1] == tensor ? node.inputs[0] : -1;
}

int GraphEditor::addConstant(Array array) {
    GraphTensor tensor;
    tensor.type = array.type();
    tensor.hasShape = true;
    tensor.dims = array.dims();
    tensor.known = std::make_shared<const Array>(std::move(array));
    const int place = graph_.add(std::move(tensor));
    makers_.resize(graph_.tensors.size(), -1);
    uses_.resize(graph_.tensors.size(), 0);
    return place;
}

bool GraphEditor::mayCopy(int constant) {
    if (isUsedOnce(constant)) return true;
    const std::int64_t count = known(constant)->count();
    if (!graph_.budget.allows(count)) return false;
    graph_.budget.take(count);
    return true;
}

void GraphEditor::release(int constant) {
    if (isUsedOnce(constant)) graph_.tensors[static_cast<std::size_t>(constant)].known.reset();
}

void GraphEditor::become(Node& node, const std::string& type, std::vector<int> inputs) {
    node.proto.set_op_type(type);
    node.proto.clear_attribute();
    setInputs(node, std::move(inputs));
}

void GraphEditor::setInputs(Node& node, std::vector<int> inputs) {
    for (const int input : node.inputs)
        if (input >= 0) --uses_[static_cast<std::size_t>(input)];
    node.inputs = std::move(inputs);
    for (const int input : node.inputs)
        if (input >= 0) ++uses_[static_cast<std::size_t>(input)];
}

void GraphEditor::drop(Node& node) {
    setInputs(node, {});
    for (const int output : node.outputs)
        if (output >= 0) makers_[static_cast<std::size_t>(output)] = -1;
    node.outputs.clear();
}

const onnx::AttributeProto* findAttribute(const Node& node, const std::string& name) {
    for (const auto& attribute : node.proto.attribute())
        if (attribute.name() == name) return &attribute;
    return nullptr;
}

std::int64_t integerOf(const Node& node, const std::string& name, std::int64_t otherwise) {
    const auto* found = findAttribute(node, name);
    return found != nullptr ? found->i() : otherwise;
}

float numberOf(const Node& node, const std::string& name, float otherwise) {
    const auto* found = findAttribute(node, name);
    return found != nullptr ? found->f() : otherwise;
}

void setAttribute(Node& node, const std::string& name, std::int64_t value) {
    onnx::AttributeProto* attribute = node.proto.add_attribute();
    attribute->set_name(name);
    attribute->set_type(onnx::AttributeProto::INT);
    attribute->set_i(value);
}

void setAttribute(Node& node, const std::string& name, float value) {
    onnx::AttributeProto* attribute = node.proto.add_attribute();
    attribute->set_name(name);
    attribute->set_type(onnx::AttributeProto::FLOAT);
    attribute->set_f(value);
}

void setAttribute(Node& node, const std::string& name, const std::vector<std::int64_t>& values) {
    onnx::AttributeProto* attribute = node.proto.add_attribute();
    attribute->set_name(name);
    attribute->set_type(onnx::AttributeProto::INTS);
    for (const std::int64_t value : values) attribute->add_ints(value);
}

std::optional<std::vector<std::int64_t>> reducedAxesOf(const GraphEditor& editor, const Node& node) {
    std::vector<std::int64_t> axes;
    if (node.inputs.size() > 1 && node.inputs[1] >= 0) {
        const Array* given = editor.known(node.inputs[1]);
        if (given == nullptr) return std::nullopt;
        axes = given->ints();
    } else if (const auto* given = findAttribute(node, "axes")) {
        axes.assign(given->ints().begin(), given->ints().end());
    }
    const auto rank = static_cast<std::int64_t>(editor.rankOf(node.inputs[0]));
    for (std::int64_t& axis : axes) axis += axis < 0 ? rank : 0;
    std::sort(axes.begin(), axes.end());
    if (axes.empty()) return std::nullopt;
    return axes;
}

}  // namespace convert
