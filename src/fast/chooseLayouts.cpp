#include "fast/chooseLayouts.h"

#include <climits>
#include <map>
#include <new>
#include <unordered_set>
#include <utility>

#include "builder/shapes.h"
#include "fast/FastWindows.h"
#include "fast/layoutOf.h"
#include "fast/reuseMemory.h"
#include "layers/RawConcatLayer.h"
#include "memory/FloatBuffer.h"

namespace {

using nolk::TensorShape;

class Layouts {
public:
    explicit Layouts(FastGraph& graph) : graph_(graph), uses_(graph.countUses()) {}

    std::vector<FastConstantCopy> run() {
        std::vector<FastNode> recorded = std::move(graph_.nodes);
        graph_.nodes.clear();
        for (FastNode& node : recorded) {
            // A built-in layer may print something, or write more than its output has.
            if (elementCount(graph_.at(node.output).shape) > 0 || std::holds_alternative<FastBuiltIn>(node.operation))
                place(node);
        }
        return std::move(constantCopies_);
    }

private:
    void place(FastNode& node) {
        if (std::holds_alternative<FastReshape>(node.operation)) return reshape(node);
        const FastLayout layout = inputLayoutOf(graph_, node);
        for (int& input : node.inputs) input = as(layout, input);
        if (const auto* op = std::get_if<FastBuiltIn>(&node.operation))
            graph_.at(node.output).minimumFloats = op->outputFloats;
        if (auto* op = std::get_if<FastConvolution>(&node.operation)) prepare(*op, node);
        if (auto* op = std::get_if<FastDeconvolution>(&node.operation))
            readWithBorder(node.inputs.front(),
                           borderOf(*op, graph_.at(node.inputs.front()).shape, graph_.at(node.output).shape));
        FastValue& out = graph_.at(node.output);
        out.layout = outputLayoutOf(graph_, node, layout);
        for (FastNodeStep& step : node.steps)
            if (step.operand >= 0) step.operand = as(graph_.at(node.output).layout, step.operand);
        if (std::holds_alternative<FastConcat>(node.operation)) return join(node);
        if (const auto* op = std::get_if<FastSlice>(&node.operation)) {
            if (slice(*op, node)) return;
        }
        graph_.nodes.push_back(std::move(node));
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

    // Zeros take no memory until they are written.
    int constantInBlocks(int value) {
        FastValue copy;
        copy.shape = graph_.at(value).shape;
        copy.layout = FastLayout::blocks;
        const FastStrides strides(copy.shape, FastLayout::blocks, {});
        const std::int64_t floats = std::int64_t{strides.sample} * copy.shape.n;
        if (floats > INT_MAX) throw std::bad_alloc();  // as planMemory does: offsets have 32 bits
        graph_.constants.push_back(zeroedFloats(static_cast<std::size_t>(floats)));
        copy.constant = graph_.constants.back().get();
        constantCopies_.push_back({graph_.at(value).constant, copy.shape, graph_.constants.back().get()});
        uses_.push_back(1);
        return graph_.add(copy);
    }

    // The result is another view of its input.
    void reshape(const FastNode& node) {
        const TensorShape in = graph_.at(node.inputs.front()).shape;
        const TensorShape out = graph_.at(node.output).shape;
        int source = sameExtents(in, out) ? node.inputs.front() : as(FastLayout::plain, node.inputs.front());
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
        if (!isAligned(node) || copiesMany(node)) {
            graph_.nodes.push_back(std::move(node));
            return;
        }
        int channels = 0;
        for (int part : node.inputs) {
            if (!isMovable(part)) part = copyOf(part, FastLayout::blocks);
            FastValue& moved = graph_.at(part);
            moved.root = node.output;
            moved.firstChannel = channels;
            enlargeBorder(node.output, std::exchange(moved.border, {}));
            channels += moved.shape.c;
        }
    }

    bool isMovable(int value) const {
        const FastValue& v = graph_.at(value);
        return !v.constant && v.root < 0 && v.host < 0;
    }

    // A node for each copy would take much more memory than the record of a concatenation, which may name one tensor
    // very often.
    bool copiesMany(const FastNode& node) const {
        constexpr int kMostCopies = 4;
        int copies = 0;
        std::unordered_set<int> moved;
        for (const int part : node.inputs) copies += isMovable(part) && moved.insert(part).second ? 0 : 1;
        return copies > kMostCopies;
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
    std::vector<FastConstantCopy> constantCopies_;
};

}  // namespace

std::vector<FastConstantCopy> chooseLayouts(FastGraph& graph) {
    std::vector<FastConstantCopy> copies = Layouts(graph).run();
    reuseMemory(graph);
    return copies;
}

void fillConstants(const std::vector<FastConstantCopy>& copies) {
    for (const FastConstantCopy& copy : copies) {
        const FastStrides from(copy.shape, FastLayout::plain, {});
        const FastStrides to(copy.shape, FastLayout::blocks, {});
        for (int n = 0; n < copy.shape.n; ++n)
            for (int c = 0; c < copy.shape.c; ++c)
                for (std::ptrdiff_t i = 0; i < from.plane; ++i)
                    copy.blocks[n * to.sample + c / kFastBlock * to.plane + i * kFastBlock + c % kFastBlock] =
                        copy.plain[n * from.sample + c * from.plane + i];
    }
}
