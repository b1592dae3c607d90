// y = factor * x + addend, channel by channel, behind a convolution or a product with constant weights: the weights
// take the factors, the bias both. Sums are in double, and rounded once.
#include <cmath>

#include "convert/graph/rules.h"

namespace convert {

namespace {

struct Affine {
    std::vector<double> factors;  // one for each channel, or one for all
    std::vector<double> addends;

    static double at(const std::vector<double>& values, std::size_t channel) {
        return values.size() == 1 ? values[0] : values[channel];
    }
};

// What makes x, when it has weights and nobody else uses its result.
Node* foldable(GraphEditor& editor, int x) {
    Node* node = editor.maker(x);
    if (node == nullptr || !editor.isUsedOnce(x) || !node->error.empty()) return nullptr;
    if (node->type() != "Conv" && node->type() != "ConvTranspose") return nullptr;
    const Array* weights = node->inputs.size() > 1 ? editor.known(node->inputs[1]) : nullptr;
    if (weights == nullptr || !weights->isFloat()) return nullptr;
    const bool hasBias = node->inputs.size() > 2 && node->inputs[2] >= 0;
    if (hasBias && editor.known(node->inputs[2]) == nullptr) return nullptr;
    return node;
}

std::vector<float> scaledWeights(const Node& node, const Array& weights, const Affine& affine, std::size_t channels) {
    std::vector<float> values = weights.floats();
    if (values.empty() || weights.dims().size() < 2) return values;
    if (node.type() == "Conv") {
        const std::size_t row = values.size() / channels;
        for (std::size_t i = 0; i < values.size(); ++i)
            values[i] = static_cast<float>(values[i] * Affine::at(affine.factors, i / row));
        return values;
    }
    // [in, out of one group, ...]
    const auto groups = static_cast<std::size_t>(integerOf(node, "group", 1));
    const auto inputs = static_cast<std::size_t>(weights.dims()[0]),
               outputs = static_cast<std::size_t>(weights.dims()[1]);
    const std::size_t plane = values.size() / (inputs * outputs);
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::size_t in = i / (outputs * plane), out = i / plane % outputs;
        const std::size_t channel = in / (inputs / groups) * outputs + out;
        values[i] = static_cast<float>(values[i] * Affine::at(affine.factors, channel));
    }
    return values;
}

std::vector<float> movedBias(const Array* bias, const Affine& affine, std::size_t channels) {
    std::vector<float> values(channels);
    for (std::size_t c = 0; c < channels; ++c) {
        const double before = bias != nullptr ? static_cast<double>(bias->floats().at(c)) : 0.0;
        values[c] = static_cast<float>(before * Affine::at(affine.factors, c) + Affine::at(affine.addends, c));
    }
    return values;
}

// Makes `node`, which applies the affine function to x, the convolution itself.
bool fold(GraphEditor& editor, Node& node, int x, const Affine& affine) {
    Node* const before = foldable(editor, x);
    if (before == nullptr) return false;
    const auto channels = static_cast<std::size_t>(editor.dimsOf(x).at(1));
    for (const auto* values : {&affine.factors, &affine.addends})
        if (values->size() != 1 && values->size() != channels) return false;
    const Node convolution = *before;
    Array weights = *editor.known(convolution.inputs[1]);
    const bool hasBias = convolution.inputs.size() > 2 && convolution.inputs[2] >= 0;
    const Array* bias = hasBias ? editor.known(convolution.inputs[2]) : nullptr;
    if (weights.count() % static_cast<std::int64_t>(channels) != 0 && convolution.type() == "Conv") return false;
    if (bias != nullptr && bias->count() != static_cast<std::int64_t>(channels)) return false;
    bool isScaled = false;
    for (const double factor : affine.factors) isScaled = isScaled || factor != 1.0;
    if (!editor.mayCopy(convolution.inputs[1])) return false;
    const Array newBias = floatArray({static_cast<std::int64_t>(channels)}, movedBias(bias, affine, channels));
    const int newWeights =
        isScaled ? editor.addConstant(floatArray(weights.dims(), scaledWeights(convolution, weights, affine, channels)))
                 : convolution.inputs[1];
    if (isScaled) editor.release(convolution.inputs[1]);
    const std::string name = node.proto.name();
    node.proto = convolution.proto;
    node.proto.set_name(convolution.proto.name().empty() ? name : convolution.proto.name());
    editor.setInputs(node, {convolution.inputs[0], newWeights, editor.addConstant(newBias)});
    editor.drop(*before);
    return true;
}

// The values of a constant that differ along axis 1 of a tensor of these dims only.
std::optional<std::vector<double>> perChannel(const GraphEditor& editor, int constant, const Dims& dims) {
    const Array* array = editor.known(constant);
    if (array == nullptr || !array->isFloat() || array->dims().size() > dims.size() || dims.size() < 2)
        return std::nullopt;
    const std::size_t offset = dims.size() - array->dims().size();
    for (std::size_t i = 0; i < array->dims().size(); ++i)
        if (array->dims()[i] != 1 && i + offset != 1) return std::nullopt;
    return std::vector<double>(array->floats().begin(), array->floats().end());
}

struct Operands {
    int x = -1;
    int constant = -1;
};

// The input that is no constant, and the one that is.
std::optional<Operands> operandsOf(const GraphEditor& editor, const Node& node) {
    if (node.inputs.size() != 2) return std::nullopt;
    for (const int i : {0, 1}) {
        const int constant = node.inputs[static_cast<std::size_t>(1 - i)];
        if (editor.known(constant) != nullptr) return Operands{node.inputs[static_cast<std::size_t>(i)], constant};
    }
    return std::nullopt;
}

}  // namespace

bool foldBatchNormalization(GraphEditor& editor, Node& node) {
    if (node.type() != "BatchNormalization" || node.inputs.size() != 5 || integerOf(node, "training_mode", 0) != 0)
        return false;
    if (node.outputs.size() > 1)
        for (std::size_t i = 1; i < node.outputs.size(); ++i)
            if (node.outputs[i] >= 0) return false;
    const Array* parts[4];
    for (std::size_t i = 0; i < 4; ++i) {
        parts[i] = editor.known(node.inputs[i + 1]);
        if (parts[i] == nullptr || !parts[i]->isFloat() || parts[i]->count() != parts[0]->count()) return false;
    }
    const double epsilon = numberOf(node, "epsilon", 1e-5f);
    Affine affine;
    for (std::size_t c = 0; c < parts[0]->floats().size(); ++c) {
        const double factor = parts[0]->floats()[c] / std::sqrt(parts[3]->floats()[c] + epsilon);
        affine.factors.push_back(factor);
        affine.addends.push_back(parts[1]->floats()[c] - parts[2]->floats()[c] * factor);
    }
    return fold(editor, node, node.inputs[0], affine);
}

bool foldFactor(GraphEditor& editor, Node& node) {
    const bool isDivision = node.type() == "Div";
    if (node.type() != "Mul" && !isDivision) return false;
    const auto operands = operandsOf(editor, node);
    if (!operands || (isDivision && operands->constant != node.inputs[1])) return false;
    auto factors = perChannel(editor, operands->constant, editor.dimsOf(operands->x));
    if (!factors) return false;
    if (isDivision)
        for (double& factor : *factors) factor = 1 / factor;
    return fold(editor, node, operands->x, {*factors, {0.0}});
}

bool foldAddend(GraphEditor& editor, Node& node) {
    const bool isDifference = node.type() == "Sub";
    if (node.type() != "Add" && !isDifference) return false;
    const auto operands = operandsOf(editor, node);
    if (!operands) return false;
    auto addends = perChannel(editor, operands->constant, editor.dimsOf(operands->x));
    if (!addends) return false;
    const bool isSubtracted = isDifference && operands->constant == node.inputs[1];
    if (isSubtracted)
        for (double& addend : *addends) addend = -addend;
    return fold(editor, node, operands->x, {{isDifference && !isSubtracted ? -1.0 : 1.0}, *addends});
}

// The lowering takes a bias as a third input.
bool foldBiasOfMatMul(GraphEditor& editor, Node& node) {
    if (node.type() != "Add") return false;
    const auto operands = operandsOf(editor, node);
    if (!operands) return false;
    const Node* product = editor.maker(operands->x, "MatMul");
    const Array* bias = editor.known(operands->constant);
    if (product == nullptr || !editor.isUsedOnce(operands->x) || product->inputs.size() != 2 || !bias->isFloat())
        return false;
    const Array* matrix = editor.known(product->inputs[1]);
    if (matrix == nullptr || matrix->dims().size() != 2 || bias->dims() != Dims{matrix->dims()[1]}) return false;
    editor.become(node, "MatMul", {product->inputs[0], product->inputs[1], operands->constant});
    return true;
}

}  // namespace convert
