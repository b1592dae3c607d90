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

constexpr const char* kExportAnew = "; the file is damaged, export the network anew";

// Throws OnnxError with all the faults, as many as a reader can use.
void refuseFor(const std::vector<std::string>& faults) {
    constexpr std::size_t kMost = 20;
    if (faults.empty()) return;
    std::string text;
    for (std::size_t i = 0; i < faults.size() && i < kMost; ++i) text += (i == 0 ? "" : "; ") + faults[i];
    if (faults.size() > kMost) text += "; and " + std::to_string(faults.size() - kMost) + " more of this kind";
    throw OnnxError(text + kExportAnew);
}

// Which node makes a tensor; -1 for an input or an initializer.
using Makers = std::unordered_map<std::string, int>;

Makers makersOf(const Model& model) {
    Makers makers;
    std::vector<std::string> faults;
    for (const auto& entry : model.initializers) makers.emplace(entry.first, -1);
    Names inputs;
    for (const auto& input : model.graph().input()) {
        if (!inputs.insert(input.name()).second) faults.push_back("two inputs are named " + inQuotes(input.name()));
        makers.emplace(input.name(), -1);  // an initializer may stand for it
    }
    for (int i = 0; i < model.graph().node_size(); ++i)
        for (const std::string& name : model.graph().node(i).output())
            if (!name.empty() && !makers.emplace(name, i).second)
                faults.push_back(describeNode(model.graph().node(i)) + ": another node or input makes " +
                                 inQuotes(name));
    refuseFor(faults);
    return makers;
}

// For each node the nodes whose results it takes, each of them once.
std::vector<std::vector<int>> neededNodes(const Model& model) {
    const Makers makers = makersOf(model);
    std::vector<std::vector<int>> needed;
    std::vector<std::string> faults;
    Names known;  // one line for each name
    const auto makerOf = [&](const std::string& name, const std::string& user) {
        const auto found = makers.find(name);
        if (found != makers.end()) return found->second;
        if (known.insert(name).second) faults.push_back(user + ": nothing makes " + inQuotes(name));
        return -1;
    };
    for (const auto& node : model.graph().node()) {
        Names taken;
        addTakenNames(node, taken);
        needed.emplace_back();
        for (const std::string& name : taken)
            if (const int maker = makerOf(name, describeNode(node)); maker >= 0) needed.back().push_back(maker);
    }
    for (const auto& output : model.graph().output()) makerOf(output.name(), "output of the graph");
    refuseFor(faults);
    return needed;
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
    const std::vector<std::vector<int>> needed = neededNodes(model);
    const std::size_t count = needed.size();
    std::vector<std::vector<int>> users(count);
    std::vector<std::size_t> missing(count, 0);
    for (std::size_t i = 0; i < count; ++i) {
        missing[i] = needed[i].size();
        for (const int maker : needed[i]) users[static_cast<std::size_t>(maker)].push_back(static_cast<int>(i));
    }

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
        if (missing[i] != 0)
            refuseFor({describeNode(graph.node(static_cast<int>(i))) + ": is part of a cycle or behind one"});
    return neededOf(graph, ordered);
}

}  // namespace convert
