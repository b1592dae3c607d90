// Activations that exporters write out.
#include <algorithm>
#include <cmath>

#include "convert/graph/rules.h"

namespace convert {

namespace {

// min(max(x + 3, 0), 6): x, or -1.
int argumentOfRelu6(const GraphEditor& editor, int tensor) {
    const Node* clip = editor.maker(tensor, "Clip");
    if (clip == nullptr) return -1;
    const auto limit = [&](std::size_t input, const char* name) -> std::optional<double> {
        if (clip->inputs.size() > input && clip->inputs[input] >= 0) return editor.number(clip->inputs[input]);
        const auto* attribute = findAttribute(*clip, name);
        return attribute != nullptr ? std::optional<double>(attribute->f()) : std::nullopt;
    };
    if (limit(1, "min") != std::optional<double>(0) || limit(2, "max") != std::optional<double>(6)) return -1;
    const Node* sum = editor.maker(clip->inputs[0], "Add");
    if (sum == nullptr) return -1;
    for (const int constant : sum->inputs)
        if (editor.isNumber(constant, 3)) {
            const int x = GraphEditor::otherInput(*sum, constant);
            return editor.dimsOf(x) == editor.dimsOf(tensor) ? x : -1;
        }
    return -1;
}

// The tensor of which node is a sixth, or -1.
int sixthOf(const GraphEditor& editor, const Node& node) {
    if (node.type() == "Div" && node.inputs.size() == 2 && editor.isNumber(node.inputs[1], 6)) return node.inputs[0];
    if (node.type() != "Mul") return -1;
    for (const int constant : node.inputs)
        if (editor.isNumber(constant, 1.0 / 6)) return GraphEditor::otherInput(node, constant);
    return -1;
}

// A product of tensors and numbers, however it is bracketed.
struct Product {
    double factor = 1;
    std::vector<int> tensors;
};

void collect(const GraphEditor& editor, int tensor, bool isRoot, int depth, Product& product) {
    constexpr int kDeepest = 4;
    if (const auto number = editor.number(tensor)) {
        product.factor *= *number;
        return;
    }
    const Node* node = editor.maker(tensor);
    const bool isInner =
        node != nullptr && node->inputs.size() == 2 && depth < kDeepest && (isRoot || editor.isUsedOnce(tensor));
    if (isInner && node->type() == "Mul") {
        for (const int input : node->inputs) collect(editor, input, false, depth + 1, product);
    } else if (isInner && node->type() == "Div" && editor.number(node->inputs[1])) {
        product.factor /= *editor.number(node->inputs[1]);
        collect(editor, node->inputs[0], false, depth + 1, product);
    } else {
        product.tensors.push_back(tensor);
    }
}

Product productOf(const GraphEditor& editor, const Node& node) {
    Product product;
    collect(editor, node.outputs[0], true, 0, product);
    return product;
}

bool isNear(double a, double b) { return std::fabs(a - b) <= 1e-5 * std::fabs(b); }

// Whether tensor is 1 + erf(x / sqrt 2).
bool isErfTerm(const GraphEditor& editor, int tensor, int x) {
    const Node* sum = editor.maker(tensor, "Add");
    if (sum == nullptr) return false;
    for (const int one : sum->inputs) {
        if (!editor.isNumber(one, 1)) continue;
        const Node* erf = editor.maker(GraphEditor::otherInput(*sum, one), "Erf");
        if (erf == nullptr) return false;
        Product inner;
        collect(editor, erf->inputs[0], true, 0, inner);
        return inner.tensors == std::vector<int>{x} && isNear(inner.factor, std::sqrt(0.5));
    }
    return false;
}

bool hasDims(const GraphEditor& editor, const Node& node, int x) {
    return editor.dimsOf(node.outputs[0]) == editor.dimsOf(x);
}

}  // namespace

bool findHardSigmoid(GraphEditor& editor, Node& node) {
    const int clipped = sixthOf(editor, node);
    const int x = clipped < 0 ? -1 : argumentOfRelu6(editor, clipped);
    if (x < 0 || !hasDims(editor, node, x)) return false;
    editor.become(node, "HardSigmoid", {x});
    setAttribute(node, "alpha", 1.0f / 6.0f);
    setAttribute(node, "beta", 0.5f);
    return true;
}

bool findHardSwish(GraphEditor& editor, Node& node) {
    if ((node.type() != "Mul" && node.type() != "Div") || node.outputs[0] < 0) return false;
    const Product product = productOf(editor, node);
    if (product.tensors.size() != 2 || !isNear(product.factor, 1.0 / 6)) return false;
    for (const std::size_t i : {0U, 1U}) {
        const int x = product.tensors[i];
        if (argumentOfRelu6(editor, product.tensors[1 - i]) != x || !hasDims(editor, node, x)) continue;
        editor.become(node, "HardSwish", {x});
        return true;
    }
    return false;
}

bool findGelu(GraphEditor& editor, Node& node) {
    if ((node.type() != "Mul" && node.type() != "Div") || node.outputs[0] < 0) return false;
    const Product product = productOf(editor, node);
    if (product.tensors.size() != 2 || !isNear(product.factor, 0.5)) return false;
    for (const std::size_t i : {0U, 1U}) {
        const int x = product.tensors[i];
        if (!isErfTerm(editor, product.tensors[1 - i], x) || !hasDims(editor, node, x)) continue;
        editor.become(node, "Gelu", {x});
        return true;
    }
    return false;
}

bool findMish(GraphEditor& editor, Node& node) {
    if (node.type() != "Mul" || node.inputs.size() != 2) return false;
    for (const int x : node.inputs) {
        const Node* tanh = editor.maker(GraphEditor::otherInput(node, x), "Tanh");
        const Node* softplus = tanh != nullptr ? editor.maker(tanh->inputs[0], "Softplus") : nullptr;
        if (softplus == nullptr || softplus->inputs[0] != x) continue;
        editor.become(node, "Mish", {x});
        return true;
    }
    return false;
}

}  // namespace convert
