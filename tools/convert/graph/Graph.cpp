#include "convert/graph/Graph.h"

#include <algorithm>
#include <utility>

#include "convert/evaluate/evaluateNode.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

class GraphMaker {
public:
    GraphMaker(const Model& model, const std::map<std::string, Dims>& inputDims) : model_(model) {
        graph_.opset = model.opset;
        std::int64_t ownFloats = 0;
        for (const auto& [name, array] : model.initializers) {
            addKnown(name, array);
            ownFloats += array.count();
        }
        graph_.budget = FloatBudget(ownFloats);
        for (const ModelInput& input : inputsOf(model)) addInput(input, inputDims);
        for (const auto& value : model.graph().value_info()) declared_.emplace(value.name(), &value);
        for (const auto& value : model.graph().output()) declared_.emplace(value.name(), &value);
    }

    Graph make() {
        for (const onnx::NodeProto* proto : orderedNodes(model_)) addNode(*proto);
        for (const auto& output : model_.graph().output()) {
            const auto found = places_.find(output.name());
            if (found == places_.end()) throw OnnxError("nothing makes the output " + inQuotes(output.name()));
            graph_.outputs.push_back(found->second);
        }
        return std::move(graph_);
    }

private:
    int addTensor(GraphTensor tensor) {
        const std::string name = tensor.name;
        const int place = graph_.add(std::move(tensor));
        places_[name] = place;
        return place;
    }

    void addKnown(const std::string& name, const Array& array) {
        addTensor({name, array.type(), true, array.dims(), std::make_shared<const Array>(array)});
    }

    void addInput(const ModelInput& input, const std::map<std::string, Dims>& inputDims) {
        graph_.inputs.push_back(addTensor({input.name, input.type, true, inputDims.at(input.name), nullptr}));
    }

    void addNode(const onnx::NodeProto& proto) {
        Node node;
        node.proto = proto;
        for (const std::string& name : proto.input()) node.inputs.push_back(name.empty() ? -1 : places_.at(name));
        if (dropsNothing(node)) node.inputs.resize(1);
        const std::vector<Value> results = evaluate(node);
        bool isKnown = !results.empty();
        for (int i = 0; i < proto.output_size(); ++i) {
            const std::string& name = proto.output(i);
            const auto at = static_cast<std::size_t>(i);
            if (name.empty()) {
                node.outputs.push_back(-1);
                continue;
            }
            GraphTensor tensor;
            tensor.name = name;
            if (at < results.size()) {
                tensor.type = results[at].type;
                tensor.hasShape = true;
                tensor.dims = results[at].dims;
                tensor.known = results[at].known;
            } else if (!node.error.empty()) {
                useDeclaredShape(tensor);
            }
            isKnown = isKnown && tensor.known;
            if (tensor.known) take(tensor.known->count());
            node.outputs.push_back(addTensor(std::move(tensor)));
        }
        node.proto.clear_input();
        node.proto.clear_output();
        if (!isKnown) graph_.nodes.push_back(std::move(node));
    }

    // Small ones, such as shapes, are computed even when nothing is left.
    void take(std::int64_t count) {
        if (graph_.budget.allows(count)) graph_.budget.take(count);
    }

    // What the file says of a result that cannot be evaluated, so that the nodes behind it can be judged. A free batch
    // is 1.
    void useDeclaredShape(GraphTensor& tensor) const {
        const auto found = declared_.find(tensor.name);
        if (found == declared_.end() || !found->second->type().tensor_type().has_shape()) return;
        const auto& type = found->second->type().tensor_type();
        Dims dims;
        std::int64_t count = 1;
        for (const auto& extent : type.shape().dim()) {
            const bool isFreeBatch = dims.empty() && !extent.has_dim_value();
            dims.push_back(isFreeBatch ? 1 : extent.dim_value());
            if (dims.back() < 1 || dims.back() > kLargestResult / count) return;
            count *= dims.back();
        }
        tensor.type = type.elem_type();
        tensor.hasShape = true;
        tensor.dims = std::move(dims);
    }

    // A dropout of nothing, as some networks are exported even in evaluation mode.
    bool dropsNothing(const Node& node) const {
        if (node.type() != "Dropout" || node.inputs.size() < 2) return false;
        const Array* ratio = graph_.known(node.inputs[1]);
        return ratio != nullptr && ratio->isFloat() && ratio->count() == 1 && ratio->floats()[0] == 0;
    }

    std::vector<Value> evaluate(Node& node) {
        std::vector<Value> values(node.inputs.size());
        std::vector<const Value*> pointers;
        bool allKnown = true;
        for (std::size_t i = 0; i < values.size(); ++i) {
            if (node.inputs[i] < 0) {
                pointers.push_back(nullptr);
                continue;
            }
            const GraphTensor& tensor = graph_.tensors[static_cast<std::size_t>(node.inputs[i])];
            if (!tensor.hasShape) return {};
            allKnown = allKnown && tensor.known;
            values[i] = {tensor.type, tensor.dims, tensor.known};
            pointers.push_back(&values[i]);
        }
        try {
            return evaluateShapes(node.proto, model_.opset, pointers, work_,
                                  allKnown ? std::max(graph_.budget.left(), kLargestKnown) : kLargestKnown);
        } catch (const OnnxError& error) {
            node.advice = error.advice;
            node.isKnownOperator = dynamic_cast<const UnknownOperator*>(&error) == nullptr;
            const std::string name = describeNode(node.proto) + ": ";  // a reader of Node has it already
            const std::string text = error.what();
            node.error = text.rfind(name, 0) == 0 ? text.substr(name.size()) : text;
            return {};
        }
    }

    const Model& model_;
    Graph graph_;
    std::map<std::string, int> places_;
    std::map<std::string, const onnx::ValueInfoProto*> declared_;
    Work work_ = kWorkInAdvance;
};

}  // namespace

const Array* Graph::known(int tensor) const {
    return tensor < 0 ? nullptr : tensors[static_cast<std::size_t>(tensor)].known.get();
}

std::string Graph::nameOf(const Node& node) const {
    if (!node.proto.name().empty()) return node.proto.name();
    for (const int output : node.outputs)
        if (output >= 0) return nameOf(output);
    return "";
}

int Graph::add(GraphTensor tensor) {
    tensors.push_back(std::move(tensor));
    return static_cast<int>(tensors.size()) - 1;
}

Graph graphOf(const Model& model, const std::map<std::string, Dims>& inputDims) {
    Graph graph = GraphMaker(model, inputDims).make();
    removeUnused(graph);
    return graph;
}

void removeUnused(Graph& graph) {
    std::vector<char> used(graph.tensors.size(), 0);
    for (const int output : graph.outputs) used[static_cast<std::size_t>(output)] = 1;
    std::vector<Node> kept;
    for (auto node = graph.nodes.rbegin(); node != graph.nodes.rend(); ++node) {
        const bool isUsed = std::any_of(node->outputs.begin(), node->outputs.end(),
                                        [&](int t) { return t >= 0 && used[static_cast<std::size_t>(t)]; });
        if (!isUsed) continue;
        for (int& output : node->outputs)
            if (output >= 0 && used[static_cast<std::size_t>(output)] == 0) output = -1;
        for (const int input : node->inputs)
            if (input >= 0) used[static_cast<std::size_t>(input)] = 1;
        kept.push_back(std::move(*node));
    }
    std::reverse(kept.begin(), kept.end());
    graph.nodes = std::move(kept);
}

}  // namespace convert
