#include "fast/fuseSteps.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "fast/FastWindows.h"

namespace {

// Producers and numbers of uses while nodes move.
struct Links {
    std::vector<int> producer;  // index of the node of each value, or -1
    std::vector<int> uses;

    explicit Links(const FastGraph& graph) : producer(graph.values.size(), -1), uses(graph.countUses()) {
        for (std::size_t i = 0; i < graph.nodes.size(); ++i) producer[at(graph.nodes[i].output)] = static_cast<int>(i);
    }

    static std::size_t at(int value) { return static_cast<std::size_t>(value); }
    int producerOf(int value) const { return producer[at(value)]; }
    int usesOf(int value) const { return uses[at(value)]; }
};

bool isElementwise(const FastNode& node) { return std::holds_alternative<FastElementwise>(node.operation); }

void removeNodes(FastGraph& graph, const std::vector<bool>& removed) {
    std::vector<FastNode> kept;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i)
        if (!removed[i]) kept.push_back(std::move(graph.nodes[i]));
    graph.nodes = std::move(kept);
}

// If `gate` is made from x alone by one sigmoid or hard sigmoid and nothing else uses it: that node's index, else -1.
int gateOf(const FastGraph& graph, const Links& links, int gate, int x) {
    const int index = links.producerOf(gate);
    if (index < 0 || links.usesOf(gate) != 1) return -1;
    const FastNode& node = graph.nodes[static_cast<std::size_t>(index)];
    const bool matches = isElementwise(node) && node.steps.size() == 1 && node.inputs.front() == x &&
                         (node.steps.front().step.kind == FastStepKind::sigmoid ||
                          node.steps.front().step.kind == FastStepKind::hardSigmoid);
    return matches ? index : -1;
}

void recognizeSwish(FastGraph& graph) {
    const Links links(graph);
    std::vector<bool> removed(graph.nodes.size(), false);
    for (FastNode& node : graph.nodes) {
        if (!isElementwise(node)) continue;
        FastNodeStep& step = node.steps.front();
        if (step.step.kind != FastStepKind::mul || step.kind != FastOperandKind::tensor) continue;
        int gate = gateOf(graph, links, step.operand, node.inputs.front());
        if (gate < 0) {
            gate = gateOf(graph, links, node.inputs.front(), step.operand);
            if (gate >= 0) std::swap(node.inputs.front(), step.operand);
        }
        if (gate < 0) continue;
        const FastStep& sigmoid = graph.nodes[static_cast<std::size_t>(gate)].steps.front().step;
        const bool isHard = sigmoid.kind == FastStepKind::hardSigmoid;
        step = {{isHard ? FastStepKind::hardSwish : FastStepKind::silu, sigmoid.p0, sigmoid.p1},
                FastOperandKind::none,
                -1,
                {},
                {}};
        removed[static_cast<std::size_t>(gate)] = true;
    }
    removeNodes(graph, removed);
}

// The layers of these nodes apply steps to what they have just computed.
bool takesSteps(const FastNode& node) {
    return std::holds_alternative<FastConvolution>(node.operation) ||
           std::holds_alternative<FastDeconvolution>(node.operation) ||
           std::holds_alternative<FastConnection>(node.operation) ||
           std::holds_alternative<FastPooling>(node.operation) || std::holds_alternative<FastResize>(node.operation) ||
           std::holds_alternative<FastInstanceNorm>(node.operation) ||
           std::holds_alternative<FastMatmul>(node.operation) || isElementwise(node);
}

// The operation with its first input and its operand exchanged.
FastStepKind exchanged(FastStepKind kind) {
    switch (kind) {
        case FastStepKind::sub:
            return FastStepKind::subFrom;
        case FastStepKind::div:
            return FastStepKind::divFrom;
        case FastStepKind::max:
            return FastStepKind::maxOf;
        case FastStepKind::subFrom:
            return FastStepKind::sub;
        case FastStepKind::divFrom:
            return FastStepKind::div;
        case FastStepKind::maxOf:
            return FastStepKind::max;
        default:
            return kind;
    }
}

// The absorbing node moves to the place of the absorbed one, where all its operands exist.
void absorbSteps(FastGraph& graph) {
    Links links(graph);
    std::vector<bool> removed(graph.nodes.size(), false);
    // Tensors that the steps of each node read. They are in memory at the same time, so there are not many.
    constexpr int kMostOperands = 8;
    std::vector<int> operands(graph.nodes.size(), 0);
    const auto host = [&](int value) {
        const int index = links.producerOf(value);
        const bool fits =
            index >= 0 && links.usesOf(value) == 1 && takesSteps(graph.nodes[static_cast<std::size_t>(index)]);
        return fits ? index : -1;
    };
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        FastNode& node = graph.nodes[i];
        if (!isElementwise(node)) continue;
        FastNodeStep& first = node.steps.front();
        const bool symmetric = first.kind == FastOperandKind::tensor;
        const int ofInput = host(node.inputs.front());
        const int ofOperand = symmetric ? host(first.operand) : -1;
        const int chosen = std::max(ofInput, ofOperand);
        operands[i] = first.operand >= 0 ? 1 : 0;
        if (chosen < 0) continue;
        const int together = operands[i] + operands[static_cast<std::size_t>(chosen)];
        if (together > kMostOperands) continue;
        operands[i] = together;
        if (chosen == ofOperand && ofInput != ofOperand) {
            std::swap(node.inputs.front(), first.operand);
            first.step.kind = exchanged(first.step.kind);
        }
        FastNode merged = std::move(graph.nodes[static_cast<std::size_t>(chosen)]);
        for (FastNodeStep& step : node.steps) merged.steps.push_back(std::move(step));
        merged.output = node.output;
        node = std::move(merged);
        links.producer[Links::at(node.output)] = static_cast<int>(i);
        removed[static_cast<std::size_t>(chosen)] = true;
    }
    removeNodes(graph, removed);
}

// If the node does nothing but multiply channels by factors.
bool onlyScalesChannels(const FastNode& node) {
    return isElementwise(node) && node.steps.size() == 1 && node.steps.front().step.kind == FastStepKind::mul &&
           node.steps.front().kind == FastOperandKind::channels;
}

void moveFactors(FastGraph& graph) {
    const Links links(graph);
    std::vector<bool> removed(graph.nodes.size(), false);
    for (FastNode& node : graph.nodes) {
        auto* const op = std::get_if<FastConvolution>(&node.operation);
        const int source = node.inputs.front(), index = op ? links.producerOf(source) : -1;
        if (index < 0 || links.usesOf(source) != 1) continue;
        const FastNode& scaling = graph.nodes[static_cast<std::size_t>(index)];
        const nolk::TensorShape& in = graph.at(source).shape;
        const nolk::Weights& w = op->weights;
        const bool pointwise = w.kernelH == 1 && w.kernelW == 1 && w.groups == 1 && w.inChannels == in.c &&
                               kindOf(*op, in, graph.at(node.output).shape) == FastConvolutionKind::direct;
        // The elements would be read and written, the weights too.
        if (!pointwise || !onlyScalesChannels(scaling) || w.outChannels >= std::int64_t{in.h} * in.w) continue;
        op->hasFactors = true;
        node.inputs = {scaling.inputs.front(), scaling.steps.front().operand};
        removed[static_cast<std::size_t>(index)] = true;
    }
    removeNodes(graph, removed);
}

// A factor and an addend for each output channel: w *= factor, b = b * factor + addend.
struct Scaling {
    std::vector<float> factor, addend;

    std::vector<float> bias(const nolk::Weights& w) const {
        std::vector<float> scaled(factor.size());
        for (std::size_t c = 0; c < scaled.size(); ++c) {
            const float old = w.bias ? w.bias[c % static_cast<std::size_t>(w.outChannels)] : 0.0f;
            scaled[c] = std::fma(old, factor[c], addend[c]);
        }
        return scaled;
    }
};

bool isScaling(const FastNodeStep& step) { return step.step.kind == FastStepKind::scaleAdd; }

// Several scalings as one, so that the weights are multiplied once. In double, so that each value is rounded once.
Scaling combined(std::vector<FastNodeStep>::const_iterator begin, std::vector<FastNodeStep>::const_iterator end,
                 int channels) {
    Scaling scaling;
    for (int c = 0; c < channels; ++c) {
        double factor = static_cast<double>(*begin->first.from(c)),
               addend = static_cast<double>(*begin->second.from(c));
        for (auto step = begin + 1; step != end; ++step) {
            const double next = static_cast<double>(*step->first.from(c));
            factor *= next;
            addend = addend * next + static_cast<double>(*step->second.from(c));
        }
        scaling.factor.push_back(static_cast<float>(factor));
        scaling.addend.push_back(static_cast<float>(addend));
    }
    return scaling;
}

// Neighbouring weights of one output channel are runLength floats; the next ones are those of the next channel.
template <typename Operation>
void fold(Operation& op, const Scaling& scaling, std::size_t count, std::size_t runLength) {
    const auto outputs = static_cast<std::size_t>(op.weights.outChannels);
    op.scaledWeight.resize(count);
    for (std::size_t i = 0; i < count; ++i)
        op.scaledWeight[i] = op.weights.weight[i] * scaling.factor[i / runLength % outputs];
    op.scaledBias = scaling.bias(op.weights);
    op.weights.weight = op.scaledWeight.data();
    op.weights.bias = op.scaledBias.data();
}

// Weights [in, out, kernelH, kernelW].
void fold(FastDeconvolution& op, const Scaling& scaling, std::size_t inChannels) {
    const auto kernel = static_cast<std::size_t>(op.weights.kernelH) * static_cast<std::size_t>(op.weights.kernelW);
    fold(op, scaling, inChannels * static_cast<std::size_t>(op.weights.outChannels) * kernel, kernel);
}

// Weights [out, in].
void fold(FastConnection& op, const Scaling& scaling, std::size_t inChannels) {
    fold(op, scaling, inChannels * static_cast<std::size_t>(op.weights.outChannels), inChannels);
}

void foldScalings(FastGraph& graph) {
    for (FastNode& node : graph.nodes) {
        const auto end = std::find_if_not(node.steps.begin(), node.steps.end(), isScaling);
        if (end != node.steps.begin()) {
            const auto scaling = [&] { return combined(node.steps.begin(), end, graph.at(node.output).shape.c); };
            // An empty input of a full connection may have a negative number of channels.
            const auto inChannels = static_cast<std::size_t>(std::max(graph.at(node.inputs.front()).shape.c, 0));
            if (auto* deconvolution = std::get_if<FastDeconvolution>(&node.operation))
                fold(*deconvolution, scaling(), inChannels);
            else if (auto* connection = std::get_if<FastConnection>(&node.operation);
                     connection && connection->weights.groups == 1 && connection->weights.weight)
                fold(*connection, scaling(), inChannels);
            else
                continue;
            node.steps.erase(node.steps.begin(), end);
        }
    }
}

}  // namespace

void fuseSteps(FastGraph& graph) {
    recognizeSwish(graph);
    absorbSteps(graph);
    moveFactors(graph);
    foldScalings(graph);
}
