// Normalisations that exporters write out.
#include <algorithm>
#include <cmath>

#include "convert/graph/rules.h"

namespace convert {

namespace {

using AxisList = std::vector<std::int64_t>;

// A mean or a sum that keeps the reduced axes.
struct Reduction {
    int x = -1;
    AxisList axes;
};

std::optional<Reduction> reductionOf(const GraphEditor& editor, int tensor, const std::string& type) {
    const Node* node = editor.maker(tensor, type);
    if (node == nullptr || integerOf(*node, "keepdims", 1) == 0) return std::nullopt;
    const auto axes = reducedAxesOf(editor, *node);
    if (!axes) return std::nullopt;
    return Reduction{node->inputs[0], *axes};
}

// The tensor whose square this is, or -1.
int rootOf(const GraphEditor& editor, int tensor) {
    const Node* node = editor.maker(tensor);
    if (node == nullptr || node->inputs.size() != 2) return -1;
    if (node->type() == "Pow" && editor.isNumber(node->inputs[1], 2)) return node->inputs[0];
    if (node->type() == "Mul" && node->inputs[0] == node->inputs[1]) return node->inputs[0];
    return -1;
}

// What is divided by what: a / b, a * (1 / b), a * b^-0.5 with the root taken.
struct Quotient {
    int dividend = -1;
    int squaredDivisor = -1;  // the divisor is its square root
};

int rootArgument(const GraphEditor& editor, int tensor) {
    if (const Node* root = editor.maker(tensor, "Sqrt")) return root->inputs[0];
    const Node* power = editor.maker(tensor, "Pow");
    return power != nullptr && editor.isNumber(power->inputs[1], 0.5) ? power->inputs[0] : -1;
}

std::optional<Quotient> quotientByRoot(const GraphEditor& editor, const Node& node) {
    if (node.inputs.size() != 2) return std::nullopt;
    if (node.type() == "Div") {
        const int squared = rootArgument(editor, node.inputs[1]);
        if (squared >= 0) return Quotient{node.inputs[0], squared};
    }
    if (node.type() != "Mul") return std::nullopt;
    for (const int dividend : node.inputs) {
        const int factor = GraphEditor::otherInput(node, dividend);
        const Node* inverse = editor.maker(factor);
        if (inverse == nullptr) continue;
        int squared = -1;
        if (inverse->type() == "Reciprocal") squared = rootArgument(editor, inverse->inputs[0]);
        if (inverse->type() == "Div" && editor.isNumber(inverse->inputs[0], 1))
            squared = rootArgument(editor, inverse->inputs[1]);
        if (inverse->type() == "Pow" && editor.isNumber(inverse->inputs[1], -0.5)) squared = inverse->inputs[0];
        if (squared >= 0) return Quotient{dividend, squared};
    }
    return std::nullopt;
}

struct Shifted {
    int x = -1;
    double addend = 0;
};

Shifted withoutAddend(const GraphEditor& editor, int tensor) {
    const Node* sum = editor.maker(tensor, "Add");
    if (sum == nullptr) return {tensor, 0};
    for (const int constant : sum->inputs)
        if (const auto number = editor.number(constant)) return {GraphEditor::otherInput(*sum, constant), *number};
    return {tensor, 0};
}

// x - mean(x), with the axes of the mean.
std::optional<Reduction> centred(const GraphEditor& editor, int tensor) {
    const Node* difference = editor.maker(tensor, "Sub");
    if (difference == nullptr) return std::nullopt;
    auto mean = reductionOf(editor, difference->inputs[1], "ReduceMean");
    if (!mean || mean->x != difference->inputs[0]) return std::nullopt;
    return mean;
}

void becomeLpNormalization(GraphEditor& editor, Node& node, int x, std::int64_t axis) {
    editor.become(node, "LpNormalization", {x});
    setAttribute(node, "axis", axis);
    setAttribute(node, "p", std::int64_t{2});
}

}  // namespace

// (x - mean) / sqrt(mean((x - mean)^2) + epsilon)
bool findLayerNormalization(GraphEditor& editor, Node& node) {
    const auto quotient = quotientByRoot(editor, node);
    if (!quotient) return false;
    const auto mean = centred(editor, quotient->dividend);
    if (!mean) return false;
    const Shifted variance = withoutAddend(editor, quotient->squaredDivisor);
    const auto squares = reductionOf(editor, variance.x, "ReduceMean");
    if (!squares || squares->axes != mean->axes) return false;
    const int root = rootOf(editor, squares->x);
    if (root < 0) return false;
    const auto same = centred(editor, root);  // some exporters subtract twice
    if (root != quotient->dividend && (!same || same->x != mean->x || same->axes != mean->axes)) return false;
    editor.become(node, "LayerNormalization", {mean->x});
    setAttribute(node, "axes", mean->axes);
    setAttribute(node, "epsilon", static_cast<float>(variance.addend));
    return true;
}

// x / sqrt(mean(x^2) + epsilon)
bool findRmsNormalization(GraphEditor& editor, Node& node) {
    const auto quotient = quotientByRoot(editor, node);
    if (!quotient) return false;
    const Shifted square = withoutAddend(editor, quotient->squaredDivisor);
    const auto mean = reductionOf(editor, square.x, "ReduceMean");
    if (!mean || mean->axes.size() != 1 || rootOf(editor, mean->x) != quotient->dividend) return false;
    const double count =
        static_cast<double>(editor.dimsOf(quotient->dividend)[static_cast<std::size_t>(mean->axes[0])]);
    becomeLpNormalization(editor, node, quotient->dividend, mean->axes[0]);
    setAttribute(node, "addend", static_cast<float>(std::sqrt(std::max(square.addend, 0.0) * count)));
    setAttribute(node, "factor", static_cast<float>(std::sqrt(count)));
    return true;
}

// sqrt(sum(x^2))
bool findEuclideanNorm(GraphEditor& editor, Node& node) {
    const bool isRoot = node.type() == "Sqrt" ||
                        (node.type() == "Pow" && node.inputs.size() == 2 && editor.isNumber(node.inputs[1], 0.5));
    if (!isRoot) return false;
    int squares = -1;
    const Node* sum = editor.maker(node.inputs[0]);
    if (sum == nullptr || !editor.isUsedOnce(node.inputs[0])) return false;
    const auto axes =
        sum->type() == "ReduceSum" || sum->type() == "ReduceSumSquare" ? reducedAxesOf(editor, *sum) : std::nullopt;
    if (!axes) return false;
    squares = sum->type() == "ReduceSum" ? rootOf(editor, sum->inputs[0]) : sum->inputs[0];
    if (squares < 0) return false;
    const std::int64_t keepsAxes = integerOf(*sum, "keepdims", 1);
    editor.become(node, "ReduceL2", {squares});
    setAttribute(node, "axes", *axes);
    setAttribute(node, "keepdims", keepsAxes);
    return true;
}

// x / |x|, with the norm kept from 0 by a limit or an addend that is too small to matter otherwise. Larger ones are
// converted as they stand.
bool findEuclideanNormalization(GraphEditor& editor, Node& node) {
    if (node.type() != "Div" || node.inputs.size() != 2) return false;
    constexpr double kNegligible = 1.001e-12;  // 1e-12 is usual, and no float
    int norm = node.inputs[1];
    if (const Node* expand = editor.maker(norm, "Expand")) norm = expand->inputs[0];
    if (const Node* clip = editor.maker(norm, "Clip")) {
        const auto low = clip->inputs.size() > 1 && clip->inputs[1] >= 0
                             ? editor.number(clip->inputs[1])
                             : std::optional<double>(numberOf(*clip, "min", 1));
        const bool isOpen = (clip->inputs.size() < 3 || clip->inputs[2] < 0) && numberOf(*clip, "max", 1e30f) > 1e20f;
        if (!low || *low > kNegligible || !isOpen) return false;
        norm = clip->inputs[0];
    } else if (const Node* larger = editor.maker(norm, "Max")) {
        for (const int constant : larger->inputs)
            if (const auto low = editor.number(constant); low && *low <= kNegligible && larger->inputs.size() == 2)
                norm = GraphEditor::otherInput(*larger, constant);
    } else {
        const Shifted shifted = withoutAddend(editor, norm);
        if (shifted.addend < 0 || shifted.addend > kNegligible) return false;
        norm = shifted.x;
    }
    const auto length = reductionOf(editor, norm, "ReduceL2");
    if (!length || length->x != node.inputs[0] || length->axes.size() != 1) return false;
    becomeLpNormalization(editor, node, node.inputs[0], length->axes[0]);
    return true;
}

}  // namespace convert
