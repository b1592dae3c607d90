#include "fast/layoutOf.h"

#include "fast/FastWindows.h"

namespace {

// Blocks of fewer channels than this are mostly unused lanes, so a convolution reads them from a plain tensor.
constexpr int kFewForBlocks = 8;

FastLayout layoutOfElementwise(const FastGraph& graph, const FastNode& node) {
    FastLayout layout = graph.at(node.inputs.front()).layout;
    for (const FastNodeStep& step : node.steps)
        if (step.kind == FastOperandKind::tensor && graph.at(step.operand).layout == FastLayout::blocks)
            layout = FastLayout::blocks;
    return graph.at(node.output).shape.c == 1 ? FastLayout::plain : layout;
}

FastLayout layoutOfConcat(const FastGraph& graph, const FastNode& node) {
    bool anyBlocks = false;
    for (const int input : node.inputs) anyBlocks = anyBlocks || graph.at(input).layout == FastLayout::blocks;
    return anyBlocks && graph.at(node.output).shape.c >= kFewForBlocks ? FastLayout::blocks : FastLayout::plain;
}

}  // namespace

FastLayout inputLayoutOf(const FastGraph& graph, const FastNode& node) {
    const FastValue& in = graph.at(node.inputs.front());
    const FastValue& out = graph.at(node.output);
    if (const auto* op = std::get_if<FastConvolution>(&node.operation)) {
        const FastConvolutionKind kind = kindOf(*op, in.shape, out.shape);
        if (kind == FastConvolutionKind::gathered) return FastLayout::plain;
        const bool few = in.layout == FastLayout::plain && in.shape.c < kFewForBlocks;
        return few && kind == FastConvolutionKind::direct ? FastLayout::plain : FastLayout::blocks;
    }
    if (std::holds_alternative<FastDeconvolution>(node.operation) ||
        std::holds_alternative<FastPooling>(node.operation) || std::holds_alternative<FastResize>(node.operation))
        return FastLayout::blocks;
    if (std::holds_alternative<FastInstanceNorm>(node.operation)) return in.layout;
    if (const auto* op = std::get_if<FastConnection>(&node.operation))
        return op->weights.groups == 1 && in.shape.h == 1 && in.shape.w == 1 ? in.layout : FastLayout::plain;
    if (std::holds_alternative<FastReduce>(node.operation)) {
        const bool planes = out.shape.c == in.shape.c && out.shape.h == 1 && out.shape.w == 1;
        return planes ? in.layout : FastLayout::plain;
    }
    if (std::holds_alternative<FastElementwise>(node.operation)) return layoutOfElementwise(graph, node);
    if (std::holds_alternative<FastConcat>(node.operation)) return layoutOfConcat(graph, node);
    if (std::holds_alternative<FastSlice>(node.operation)) return in.layout;
    return FastLayout::plain;
}

FastLayout outputLayoutOf(const FastGraph& graph, const FastNode& node, FastLayout inputs) {
    const bool products = std::holds_alternative<FastConvolution>(node.operation) ||
                          std::holds_alternative<FastDeconvolution>(node.operation);
    // A single channel is stored without unused lanes.
    if (products) return graph.at(node.output).shape.c == 1 ? FastLayout::plain : FastLayout::blocks;
    return std::holds_alternative<FastConnection>(node.operation) ? FastLayout::plain : inputs;
}
