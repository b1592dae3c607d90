#include "fast/chooseLayouts.h"

#include <algorithm>
#include <climits>
#include <map>
#include <utility>

#include "builder/shapes.h"
#include "fast/FastWindows.h"
#include "layers/RawConcatLayer.h"
#include "memory/FloatBuffer.h"

namespace {

using nolk::TensorShape;

// Blocks of fewer channels than this are mostly unused lanes, so a convolution reads them from a plain tensor.
constexpr int kFewForBlocks = 8;

class Layouts {
public:
    explicit Layouts(FastGraph& graph) : graph_(graph), uses_(graph.countUses()) {}

    void run() {
        std::vector<FastNode> recorded = std::move(graph_.nodes);
        graph_.nodes.clear();
        for (FastNode& node : recorded) {
            // A built-in layer may print something, or write more than its output has.
            if (elementCount(graph_.at(node.output).shape) > 0 || std::holds_alternative<FastBuiltIn>(node.operation))
                place(node);
        }
    }

private:
    void place(FastNode& node) {
        if (std::holds_alternative<FastReshape>(node.operation)) return reshape(node);
        const FastLayout layout = layoutOf(node);
        for (int& input : node.inputs) input = as(layout, input);
        if (const auto* op = std::get_if<FastBuiltIn>(&node.operation))
            graph_.at(node.output).minimumFloats = op->outputFloats;
        if (auto* op = std::get_if<FastConvolution>(&node.operation)) prepare(*op, node);
        if (auto* op = std::get_if<FastDeconvolution>(&node.operation))
            readWithBorder(node.inputs.front(),
                           borderOf(*op, graph_.at(node.inputs.front()).shape, graph_.at(node.output).shape));
        FastValue& out = graph_.at(node.output);
        out.layout = outputLayoutOf(node, layout);
        for (FastNodeStep& step : node.steps)
            if (step.operand >= 0) step.operand = as(graph_.at(node.output).layout, step.operand);
        if (std::holds_alternative<FastConcat>(node.operation)) return join(node);
        if (const auto* op = std::get_if<FastSlice>(&node.operation)) {
            if (slice(*op, node)) return;
        }
        graph_.nodes.push_back(std::move(node));
    }

    // Of the inputs.
    FastLayout layoutOf(const FastNode& node) const {
        const FastValue& in = graph_.at(node.inputs.front());
        const FastValue& out = graph_.at(node.output);
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
        if (std::holds_alternative<FastElementwise>(node.operation)) return commonLayout(node);
        if (std::holds_alternative<FastConcat>(node.operation)) return layoutOfConcat(node);
        if (std::holds_alternative<FastSlice>(node.operation)) return in.layout;
        return FastLayout::plain;
    }

    FastLayout outputLayoutOf(const FastNode& node, FastLayout inputs) const {
        const bool products = std::holds_alternative<FastConvolution>(node.operation) ||
                              std::holds_alternative<FastDeconvolution>(node.operation);
        // A single channel is stored without unused lanes.
        if (products) return graph_.at(node.output).shape.c == 1 ? FastLayout::plain : FastLayout::blocks;
        return std::holds_alternative<FastConnection>(node.operation) ? FastLayout::plain : inputs;
    }

    FastLayout commonLayout(const FastNode& node) const {
        FastLayout layout = graph_.at(node.inputs.front()).layout;
        for (const FastNodeStep& step : node.steps)
            if (step.kind == FastOperandKind::tensor && graph_.at(step.operand).layout == FastLayout::blocks)
                layout = FastLayout::blocks;
        return graph_.at(node.output).shape.c == 1 ? FastLayout::plain : layout;
    }

    FastLayout layoutOfConcat(const FastNode& node) const {
        bool anyBlocks = false;
        for (const int input : node.inputs) anyBlocks = anyBlocks || graph_.at(input).layout == FastLayout::blocks;
        return anyBlocks && graph_.at(node.output).shape.c >= kFewForBlocks ? FastLayout::blocks : FastLayout::plain;
    }

    // Whether each part begins with a block.
    bool isAligned(const FastNode& node) const {
        int channels = 0;
        for (const int input : node.inputs) {
            if (channels % kFastBlock != 0) return false;
            channels += graph_.at(input).shape.c;
        }
        return true;
    }

    void prepare(FastConvolution& op, FastNode& node) {
        const TensorShape in = graph_.at(node.inputs.front()).shape;
        const TensorShape& out = graph_.at(node.output).shape;
        if (kindOf(op, in, out) == FastConvolutionKind::gathered) return;
        const FastBorder border = borderOf(op, in, out);
        int& input = node.inputs.front();
        const FastValue& value = graph_.at(input);
        // Other consumers of a plain value rely on planes without a border.
        const bool shared = value.constant || value.root >= 0 || value.host < 0 || uses_[index(input)] > 1;
        if (value.layout == FastLayout::plain && !border.isEmpty() && shared) input = copyOf(input, FastLayout::plain);
        readWithBorder(input, border);
    }

    // Constants lie without a border.
    void readWithBorder(int& input, const FastBorder& border) {
        if (graph_.at(input).constant && !border.isEmpty()) input = copyOf(input, graph_.at(input).layout);
        enlargeBorder(input, border);
    }

    void enlargeBorder(int value, const FastBorder& border) {
        if (!border.isEmpty()) graph_.at(graph_.rootOf(value)).border.enlarge(border);
    }

    // The value in this layout.
    int as(FastLayout layout, int value) {
        if (graph_.at(value).layout == layout) return value;
        const auto found = copies_.find(value);
        if (found != copies_.end()) return found->second;
        const int copy = graph_.at(value).constant ? constantInBlocks(value) : copyOf(value, layout);
        copies_.emplace(value, copy);
        return copy;
    }

    int copyOf(int value, FastLayout layout) {
        FastValue copy;
        copy.shape = graph_.at(value).shape;
        copy.layout = layout;
        const int id = graph_.add(copy);
        graph_.nodes.push_back({FastCopy{}, {value}, id, {}, -1});
        uses_.push_back(1);
        return id;
    }

    int constantInBlocks(int value) {
        FastValue copy;
        copy.shape = graph_.at(value).shape;
        copy.layout = FastLayout::blocks;
        const FastStrides from(copy.shape, FastLayout::plain, {});
        const FastStrides to(copy.shape, FastLayout::blocks, {});
        graph_.constants.push_back(zeroedFloats(static_cast<std::size_t>(to.sample * copy.shape.n)));
        float* const data = graph_.constants.back().get();
        for (int n = 0; n < copy.shape.n; ++n)
            for (int c = 0; c < copy.shape.c; ++c)
                for (std::ptrdiff_t i = 0; i < from.plane; ++i)
                    data[n * to.sample + c / kFastBlock * to.plane + i * kFastBlock + c % kFastBlock] =
                        graph_.at(value).constant[n * from.sample + c * from.plane + i];
        copy.constant = data;
        uses_.push_back(1);
        return graph_.add(copy);
    }

    // The result is another view of its input.
    void reshape(const FastNode& node) {
        const TensorShape in = graph_.at(node.inputs.front()).shape;
        const TensorShape out = graph_.at(node.output).shape;
        const bool same = in.n == out.n && in.c == out.c && in.h == out.h && in.w == out.w;
        int source = same ? node.inputs.front() : as(FastLayout::plain, node.inputs.front());
        FastValue& value = graph_.at(node.output);
        // A view of a view would make long chains.
        if (graph_.at(source).root >= 0 && graph_.at(source).reshaped) source = graph_.at(source).root;
        value.layout = graph_.at(source).layout;
        value.constant = graph_.at(source).constant;
        value.root = source;
        value.reshaped = true;
    }

    // Lets the inputs be parts of the output, or copies them there.
    void join(FastNode& node) {
        if (graph_.at(node.output).layout == FastLayout::plain) {
            node.operation = FastBuiltIn{[](const std::vector<nolk::Tensor>& in, nolk::Tensor out) {
                                             return std::make_unique<RawConcatLayer>(in, out, 1);
                                         },
                                         elementCount(graph_.at(node.output).shape)};
            graph_.nodes.push_back(std::move(node));
            return;
        }
        if (!isAligned(node)) {
            graph_.nodes.push_back(std::move(node));
            return;
        }
        int channels = 0;
        for (int part : node.inputs) {
            const FastValue& value = graph_.at(part);
            const bool movable = !value.constant && value.root < 0 && value.host < 0;
            if (!movable) part = copyOf(part, FastLayout::blocks);
            FastValue& moved = graph_.at(part);
            moved.root = node.output;
            moved.firstChannel = channels;
            enlargeBorder(node.output, std::exchange(moved.border, {}));
            channels += moved.shape.c;
        }
    }

    // True if the result is a view of the input; else the node copies.
    bool slice(const FastSlice& op, FastNode& node) {
        const int input = node.inputs.front();
        FastValue& value = graph_.at(node.output);
        if (value.layout == FastLayout::plain) {
            node.operation = FastBuiltIn(op.plain);
            value.minimumFloats = std::get<FastBuiltIn>(node.operation).outputFloats;
            return false;
        }
        if (op.firstChannel % kFastBlock != 0 || graph_.at(input).constant) return false;
        // A view of a view would make long chains.
        const FastValue& source = graph_.at(input);
        const bool isSlice = source.root >= 0 && !source.reshaped;
        value.root = isSlice ? source.root : input;
        value.firstChannel = op.firstChannel + (isSlice ? source.firstChannel : 0);
        return true;
    }

    static std::size_t index(int value) { return static_cast<std::size_t>(value); }

    FastGraph& graph_;
    std::vector<int> uses_;
    std::map<int, int> copies_;  // of values in the other layout
};

std::vector<bool> findRoots(const FastGraph& graph) {
    std::vector<bool> isRoot(graph.values.size(), false);
    for (const FastValue& value : graph.values)
        if (value.root >= 0) isRoot[static_cast<std::size_t>(value.root)] = true;
    return isRoot;
}

// Inputs of the network that are only copied to blocks are copied there from the host's memory.
void takeInputsInBlocks(FastGraph& graph) {
    const std::vector<int> uses = graph.countUses();
    const std::vector<bool> isRoot = findRoots(graph);
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
          hasViews_(findRoots(graph)),
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

void chooseLayouts(FastGraph& graph) {
    Layouts(graph).run();
    takeInputsInBlocks(graph);
    SharedMemory(graph).run();
}
