#include "convert/graph/rewrite.h"

#include "convert/graph/rules.h"

namespace convert {

namespace {

// In the order in which they are tried at a node.
constexpr Rule kRules[] = {
    foldBatchNormalization,
    findHardSwish,
    findHardSigmoid,
    findGelu,
    findMish,
    findLayerNormalization,
    findRmsNormalization,
    findEuclideanNorm,
    findEuclideanNormalization,
    foldFactor,
    foldAddend,
    foldBiasOfMatMul,
};

bool applyOne(GraphEditor& editor, Node& node) {
    for (const Rule rule : kRules)
        if (rule(editor, node)) return true;
    return false;
}

bool hasAllShapes(const Graph& graph, const Node& node) {
    if (!node.error.empty()) return false;
    for (const std::vector<int>* tensors : {&node.inputs, &node.outputs})
        for (const int tensor : *tensors)
            if (tensor >= 0 && !graph.tensors[static_cast<std::size_t>(tensor)].hasShape) return false;
    return true;
}

}  // namespace

void rewrite(Graph& graph) {
    GraphEditor editor(graph);
    bool changed = true;
    while (changed) {
        changed = false;
        for (Node& node : graph.nodes)
            while (hasAllShapes(graph, node) && applyOne(editor, node)) changed = true;
        removeUnused(graph);
        editor.refresh();
    }
}

}  // namespace convert
