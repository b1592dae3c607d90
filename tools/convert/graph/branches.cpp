#include "convert/graph/branches.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "convert/evaluate/evaluateNode.h"

namespace convert {

namespace {

using Renamed = std::unordered_map<std::string, std::string>;

void rename(std::string& name, const Renamed& names) {
    const auto found = names.find(name);
    if (found != names.end()) name = found->second;
}

void rename(onnx::GraphProto& graph, const Renamed& names);

void rename(onnx::NodeProto& node, const Renamed& names) {
    for (std::string& name : *node.mutable_input()) rename(name, names);
    for (std::string& name : *node.mutable_output()) rename(name, names);
    for (auto& attribute : *node.mutable_attribute()) {
        if (attribute.has_g()) rename(*attribute.mutable_g(), names);
        for (onnx::GraphProto& graph : *attribute.mutable_graphs()) rename(graph, names);
    }
}

void rename(onnx::GraphProto& graph, const Renamed& names) {
    for (onnx::NodeProto& node : *graph.mutable_node()) rename(node, names);
    for (auto& output : *graph.mutable_output()) rename(*output.mutable_name(), names);
}

// The graph in an attribute; null where there is none.
const onnx::GraphProto* branchOf(const onnx::NodeProto& node, const char* name) {
    for (const auto& attribute : node.attribute())
        if (attribute.name() == name && attribute.has_g()) return &attribute.g();
    return nullptr;
}

bool isIf(const onnx::NodeProto& node) { return node.domain().empty() && node.op_type() == "If"; }

// What is known of the graph's tensors for one batch.
struct Known {
    std::unordered_map<std::string, Value> values;
    Work work = kWorkInAdvance;

    // The value that decides an If; null where only a run could tell.
    const Array* conditionOf(const onnx::NodeProto& node) const {
        const auto found = values.find(node.input(0));
        if (found == values.end() || !found->second.known) return nullptr;
        const Array& value = *found->second.known;
        return value.isFloat() || value.count() != 1 ? nullptr : &value;
    }

    void addResultsOf(const onnx::NodeProto& node, int opset) {
        std::vector<const Value*> inputs;
        for (const std::string& name : node.input()) {
            const auto found = values.find(name);
            if (!name.empty() && found == values.end()) return;  // behind a node whose results are not known
            inputs.push_back(name.empty() ? nullptr : &found->second);
        }
        try {
            std::vector<Value> results = evaluateShapes(node, opset, inputs, work);
            for (int i = 0; i < node.output_size(); ++i)
                if (!node.output(i).empty()) values[node.output(i)] = std::move(results[static_cast<std::size_t>(i)]);
        } catch (const OnnxError&) {
            // Whoever converts the graph says so.
        }
    }
};

class BranchTaker {
public:
    BranchTaker(Model& model, const std::vector<std::map<std::string, Dims>>& inputDims) : model_(model) {
        for (const auto& dims : inputDims) {
            Known known;
            for (const auto& [name, array] : model.initializers) known.values.emplace(name, Value::of(array));
            for (const ModelInput& input : inputsOf(model))
                known.values[input.name] = Value{input.type, dims.at(input.name), nullptr};
            batches_.push_back(std::move(known));
        }
    }

    void run() {
        for (const onnx::NodeProto* node : orderedNodes(model_)) take(*node);
        onnx::GraphProto& graph = *model_.proto.mutable_graph();
        graph.clear_node();
        for (onnx::NodeProto& node : nodes_) *graph.add_node() = std::move(node);
    }

private:
    void take(const onnx::NodeProto& node) {
        if (const onnx::GraphProto* branch = takenBranch(node))
            replace(node, *branch);
        else
            keep(node);
    }

    const onnx::GraphProto* takenBranch(const onnx::NodeProto& node) const {
        if (!isIf(node) || node.input_size() != 1) return nullptr;
        const Array* condition = batches_.front().conditionOf(node);
        if (condition == nullptr) return nullptr;
        const bool isTrue = condition->ints()[0] != 0;
        for (const Known& other : batches_) {
            condition = other.conditionOf(node);
            if (condition != nullptr && (condition->ints()[0] != 0) != isTrue) return nullptr;
        }
        const onnx::GraphProto* branch = branchOf(node, isTrue ? "then_branch" : "else_branch");
        if (branch == nullptr || branch->output_size() != node.output_size())
            throw OnnxError(describeNode(node) + ": its branch has another number of results");
        return branch;
    }

    // The branch's own names get the node's result in front; its results get the names of the node's.
    void replace(const onnx::NodeProto& node, const onnx::GraphProto& branch) {
        onnx::GraphProto taken = branch;
        const std::string front = (node.output_size() > 0 ? node.output(0) : node.name()) + "/";
        Renamed names;
        for (auto& tensor : *taken.mutable_initializer()) {
            const std::string name = front + tensor.name();
            Array array = arrayOf(tensor, model_.folder);
            for (Known& known : batches_) known.values[name] = Value::of(array);
            names[tensor.name()] = name;
            if (!model_.initializers.emplace(name, std::move(array)).second)
                throw OnnxError(describeNode(node) + ": two tensors are named " + name);
        }
        for (const onnx::NodeProto& inner : taken.node())
            for (const std::string& name : inner.output())
                if (!name.empty()) names[name] = front + name;
        rename(taken, names);
        for (const onnx::NodeProto& inner : taken.node()) take(inner);
        for (int i = 0; i < node.output_size(); ++i) {
            if (node.output(i).empty()) continue;
            onnx::NodeProto result;
            result.set_op_type("Identity");
            result.set_name(node.name());
            result.add_input(taken.output(i).name());
            result.add_output(node.output(i));
            keep(result);
        }
    }

    void keep(const onnx::NodeProto& node) {
        nodes_.push_back(node);
        for (Known& known : batches_) known.addResultsOf(node, model_.opset);
    }

    Model& model_;
    std::vector<Known> batches_;
    std::vector<onnx::NodeProto> nodes_;
};

}  // namespace

void takeBranches(Model& model, const std::vector<std::map<std::string, Dims>>& inputDims) {
    const auto& nodes = model.graph().node();
    if (std::any_of(nodes.begin(), nodes.end(), isIf)) BranchTaker(model, inputDims).run();
}

}  // namespace convert
