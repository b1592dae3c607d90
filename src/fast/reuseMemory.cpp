#include "fast/reuseMemory.h"

#include <climits>
#include <utility>

namespace {

// Inputs of the network that are only copied to blocks are copied there from the host's memory.
void takeInputsInBlocks(FastGraph& graph) {
    const std::vector<int> uses = graph.countUses();
    const std::vector<bool> isRoot = graph.findRoots();
    std::vector<FastNode> kept;
    for (FastNode& node : graph.nodes) {
        const int source = node.inputs.front();
        const FastValue& value = graph.at(source);
        const bool replaces = std::holds_alternative<FastCopy>(node.operation) && value.host >= 0 &&
                              uses[static_cast<std::size_t>(source)] == 1 && !isRoot[static_cast<std::size_t>(source)];
        if (!replaces) {
            kept.push_back(std::move(node));
            continue;
        }
        graph.at(node.output).host = value.host;
        graph.inputs[static_cast<std::size_t>(value.host)] = node.output;
    }
    graph.nodes = std::move(kept);
}

// Lets nodes write over a source that they read at the same place as they write, and that nothing needs afterwards: the
// input of an element-wise node, the tensor that is added to sums of products. Memory that was just read is in the
// cache, and the arena is smaller.
class SharedMemory {
public:
    explicit SharedMemory(FastGraph& graph)
        : graph_(graph),
          lastNode_(graph.values.size(), -1),
          hasViews_(graph.findRoots()),
          isShared_(graph.values.size(), false) {
        for (std::size_t i = 0; i < graph.nodes.size(); ++i)
            forEachSource(graph.nodes[i],
                          [&](int source) { lastNode_[at(graph.rootOf(source))] = static_cast<int>(i); });
        for (const int output : graph.outputs) lastNode_[at(graph.rootOf(output))] = INT_MAX;
    }

    void run() {
        for (std::size_t i = 0; i < graph_.nodes.size(); ++i) {
            const FastNode& node = graph_.nodes[i];
            const int source = overwritable(node);
            if (source >= 0 && isFree(node, source, static_cast<int>(i))) share(node.output, graph_.rootOf(source));
        }
    }

private:
    static std::size_t at(int value) { return static_cast<std::size_t>(value); }

    static int overwritable(const FastNode& node) {
        if (std::holds_alternative<FastElementwise>(node.operation)) return node.inputs.front();
        const bool products = std::holds_alternative<FastConvolution>(node.operation) ||
                              std::holds_alternative<FastDeconvolution>(node.operation);
        const bool adds = products && !node.steps.empty() && node.steps.front().step.kind == FastStepKind::add &&
                          node.steps.front().kind == FastOperandKind::tensor;
        return adds ? node.steps.front().operand : -1;
    }

    bool isFree(const FastNode& node, int source, int index) const {
        const int root = graph_.rootOf(source);
        int readings = 0;
        forEachSource(node, [&](int other) { readings += graph_.rootOf(other) == root ? 1 : 0; });
        const FastValue& value = graph_.at(source);
        return readings == 1 && lastNode_[at(root)] == index && !value.constant &&
               (value.root < 0 || isShared_[at(source)]) && !hasViews_[at(root)] && graph_.at(node.output).root < 0 &&
               !hasViews_[at(node.output)] && graph_.at(node.output).layout == value.layout;
    }

    void share(int output, int root) {
        FastValue& value = graph_.at(output);
        graph_.at(root).border.enlarge(value.border);
        value.root = root;
        value.reshaped = true;
        isShared_[at(output)] = true;
        lastNode_[at(root)] = lastNode_[at(output)];
    }

    FastGraph& graph_;
    std::vector<int> lastNode_;   // that reads a root
    std::vector<bool> hasViews_;  // that passes before this one have made
    std::vector<bool> isShared_;  // by this pass
};

}  // namespace

void reuseMemory(FastGraph& graph) {
    takeInputsInBlocks(graph);
    SharedMemory(graph).run();
}
