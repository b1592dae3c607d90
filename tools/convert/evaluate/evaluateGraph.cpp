#include "convert/evaluate/evaluateGraph.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "convert/onnx/text.h"

namespace convert {

namespace {

// How often each tensor is still needed.
using Uses = std::unordered_map<std::string, std::size_t>;

Uses usesOf(const Model& model, const std::vector<const onnx::NodeProto*>& nodes) {
    Uses uses;
    for (const onnx::NodeProto* node : nodes)
        for (const std::string& name : node->input()) ++uses[name];
    for (const auto& output : model.graph().output()) ++uses[output.name()];
    return uses;
}

std::int64_t bytesOf(const Array& array) { return array.count() * (array.isFloat() ? 4 : 8); }

class GraphRun {
public:
    GraphRun(const Model& model, const std::map<std::string, Array>& inputs, const GraphOptions& options)
        : model_(model), options_(options), nodes_(orderedNodes(model)), uses_(usesOf(model, nodes_)) {
        for (const ModelInput& input : inputsOf(model)) {
            const auto found = inputs.find(input.name);
            if (found == inputs.end()) throw OnnxError("no values for the input " + inQuotes(input.name));
            arrays_.emplace(input.name, found->second);
            bytes_ += bytesOf(found->second);
        }
        for (const std::string& name : options.wanted) ++uses_[name];
    }

    std::map<std::string, Array> run() {
        for (std::size_t i = 0; i < nodes_.size(); ++i) {
            evaluate(*nodes_[i]);
            if (options_.progress) options_.progress(i + 1, nodes_.size());
        }
        keepInitializers();
        return std::move(arrays_);
    }

private:
    const Array* find(const std::string& name) const {
        if (name.empty()) return nullptr;
        const auto made = arrays_.find(name);
        return made != arrays_.end() ? &made->second : &model_.initializers.at(name);
    }

    void evaluate(const onnx::NodeProto& node) {
        std::vector<const Array*> inputs;
        for (const std::string& name : node.input()) inputs.push_back(find(name));
        std::vector<Array> results = evaluateNode(node, model_.opset, inputs, work_, options_.memoryBytes - bytes_);
        for (int i = 0; i < node.output_size(); ++i)
            if (isKept(node.output(i))) keep(node.output(i), std::move(results[static_cast<std::size_t>(i)]));
        if (options_.keepAll) return;
        for (const std::string& name : node.input())
            if (--uses_[name] == 0) drop(name);
    }

    bool isKept(const std::string& name) const { return !name.empty() && (options_.keepAll || uses_.count(name) != 0); }

    void keep(const std::string& name, Array array) {
        bytes_ += bytesOf(array);
        arrays_.emplace(name, std::move(array));
    }

    void drop(const std::string& name) {
        const auto found = arrays_.find(name);
        if (found == arrays_.end()) return;
        bytes_ -= bytesOf(found->second);
        arrays_.erase(found);
    }

    // An output or a wanted tensor may be an initializer.
    void keepInitializers() {
        for (const auto& output : model_.graph().output()) arrays_.emplace(output.name(), *find(output.name()));
        for (const std::string& name : options_.wanted)
            if (const auto found = model_.initializers.find(name); found != model_.initializers.end())
                arrays_.emplace(name, found->second);
    }

    const Model& model_;
    const GraphOptions& options_;
    const std::vector<const onnx::NodeProto*> nodes_;
    Uses uses_;
    std::map<std::string, Array> arrays_;
    std::int64_t bytes_ = 0;
    Work work_;
};

}  // namespace

std::map<std::string, Array> evaluateGraph(const Model& model, const std::map<std::string, Array>& inputs,
                                           const GraphOptions& options) {
    return GraphRun(model, inputs, options).run();
}

std::map<std::string, Value> evaluateGraphShapes(const Model& model, const std::map<std::string, Dims>& inputs) {
    std::map<std::string, Value> values;
    Work work = kWorkInAdvance;
    for (const auto& [name, array] : model.initializers) values.emplace(name, Value::of(array));
    for (const ModelInput& input : inputsOf(model)) {
        const auto found = inputs.find(input.name);
        if (found == inputs.end()) throw OnnxError("no shape for the input " + inQuotes(input.name));
        values[input.name] = Value{input.type, found->second, nullptr};
    }
    for (const onnx::NodeProto* node : orderedNodes(model)) {
        std::vector<const Value*> nodeInputs;
        for (const std::string& name : node->input()) nodeInputs.push_back(name.empty() ? nullptr : &values.at(name));
        std::vector<Value> results = evaluateShapes(*node, model.opset, nodeInputs, work);
        for (int i = 0; i < node->output_size(); ++i)
            if (!node->output(i).empty()) values[node->output(i)] = std::move(results[static_cast<std::size_t>(i)]);
    }
    return values;
}

}  // namespace convert
