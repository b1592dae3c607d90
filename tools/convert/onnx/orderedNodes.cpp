#include <algorithm>
#include <functional>
#include <queue>
#include <unordered_map>
#include <unordered_set>

#include "convert/onnx/Model.h"
#include "convert/onnx/text.h"

namespace convert {

namespace {

using Names = std::unordered_set<std::string>;

void addOuterNames(const onnx::GraphProto& graph, Names& names);

// The tensors that a node takes: its inputs, and what graphs in its attributes (of If, Loop) take from outside.
void addTakenNames(const onnx::NodeProto& node, Names& names) {
    for (const std::string& name : node.input())
        if (!name.empty()) names.insert(name);
    for (const auto& attribute : node.attribute()) {
        if (attribute.has_g()) addOuterNames(attribute.g(), names);
        for (const auto& graph : attribute.graphs()) addOuterNames(graph, names);
    }
}

void addOuterNames(const onnx::GraphProto& graph, Names& names) {
    Names taken, own;
    for (const auto& input : graph.input()) own.insert(input.name());
    for (const auto& tensor : graph.initializer()) own.insert(tensor.name());
    for (const auto& node : graph.node()) {
        addTakenNames(node, taken);
        own.insert(node.output().begin(), node.output().end());
    }
    for (const auto& output : graph.output()) taken.insert(output.name());
    for (const std::string& name : taken)
        if (own.count(name) == 0) names.insert(name);
}

// Which node makes a tensor; -1 for an input or an initializer.
using Makers = std::unordered_map<std::string, int>;

Makers makersOf(const Model& model) {
    Makers makers;
    for (const auto& entry : model.initializers) makers.emplace(entry.first, -1);
    Names inputs;
    for (const auto& input : model.graph().input()) {
        if (!inputs.insert(input.name()).second) throw OnnxError("two inputs are named " + inQuotes(input.name()));
        makers.emplace(input.name(), -1);  // an initializer may stand for it
    }
    for (int i = 0; i < model.graph().node_size(); ++i)
        for (const std::string& name : model.graph().node(i).output())
            if (!name.empty() && !makers.emplace(name, i).second)
                throw OnnxError(describeNode(model.graph().node(i)) + ": another node or input makes " +
                                inQuotes(name));
    return makers;
}

int makerOf(const Makers& makers, const std::string& name, const std::string& user) {
    const auto found = makers.find(name);
    if (found == makers.end()) throw OnnxError(user + ": nothing makes " + inQuotes(name));
    return found->second;
}

// The nodes whose results an output of the graph needs. ordered: all nodes, each behind those that it needs.
std::vector<const onnx::NodeProto*> neededOf(const onnx::GraphProto& graph,
                                             const std::vector<const onnx::NodeProto*>& ordered) {
    Names needed;
    for (const auto& output : graph.output()) needed.insert(output.name());
    std::vector<const onnx::NodeProto*> kept;
    for (auto node = ordered.rbegin(); node != ordered.rend(); ++node) {
        const auto& made = (*node)->output();
        if (std::none_of(made.begin(), made.end(), [&](const auto& name) { return needed.count(name) != 0; })) continue;
        addTakenNames(**node, needed);
        kept.push_back(*node);
    }
    std::reverse(kept.begin(), kept.end());
    return kept;
}

}  // namespace

std::vector<const onnx::NodeProto*> orderedNodes(const Model& model) {
    const onnx::GraphProto& graph = model.graph();
    const Makers makers = makersOf(model);
    const std::size_t count = static_cast<std::size_t>(graph.node_size());
    std::vector<std::vector<int>> users(count);
    std::vector<std::size_t> missing(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        const onnx::NodeProto& node = graph.node(static_cast<int>(i));
        Names taken;
        addTakenNames(node, taken);
        for (const std::string& name : taken) {
            const int maker = makerOf(makers, name, describeNode(node));
            if (maker < 0) continue;
            users[static_cast<std::size_t>(maker)].push_back(static_cast<int>(i));
            ++missing[i];
        }
    }
    for (const auto& output : graph.output()) makerOf(makers, output.name(), "output of the graph");

    // The file's own order, where that is one.
    std::priority_queue<int, std::vector<int>, std::greater<>> ready;
    for (std::size_t i = 0; i < count; ++i)
        if (missing[i] == 0) ready.push(static_cast<int>(i));
    std::vector<const onnx::NodeProto*> ordered;
    while (!ready.empty()) {
        const int node = ready.top();
        ready.pop();
        ordered.push_back(&graph.node(node));
        for (const int user : users[static_cast<std::size_t>(node)])
            if (--missing[static_cast<std::size_t>(user)] == 0) ready.push(user);
    }
    for (std::size_t i = 0; i < count && ordered.size() != count; ++i)
        if (missing[i] != 0) throw OnnxError(describeNode(graph.node(static_cast<int>(i))) + ": is part of a cycle");
    return neededOf(graph, ordered);
}

}  // namespace convert
