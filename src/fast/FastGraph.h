// A network as the passes of the fast back end see it: values (tensors) and nodes (operations) in execution order.
// Every value has one producer: a node, the host (inputs) or nobody (constants). A node's steps are element-wise
// operations that are applied to its result before it is stored.
//   FastGraph graph = readFastGraph(factories, inputs, outputs);
//   fuseSteps(graph);
//   const auto copies = chooseLayouts(graph);
//   keepConstants(graph, constants, given, unread);
//   FastPlan plan = planMemory(graph, scratchFloatsOf(graph, threads));
//   fillConstants(copies);
// Weight arrays are borrowed from the builder until the layers have packed them.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "fast/FastChannelValues.h"
#include "fast/FastLayout.h"
#include "fast/kernels/steps.h"
#include "layers/Layer.h"
#include "memory/FloatBuffer.h"

struct FastConvolution {
    nolk::Padding padding;
    nolk::DimsHW stride, dilation;
    nolk::Weights weights;
    // Factors of the input channels, [n, c, 1, 1], which the layer multiplies into the weights: the node's second
    // input.
    bool hasFactors = false;
};

struct FastDeconvolution {
    nolk::Padding padding;
    nolk::DimsHW stride;
    nolk::Weights weights;
    std::vector<float> scaledWeight, scaledBias;
};

struct FastConnection {
    nolk::Weights weights;
    std::vector<float> scaledWeight, scaledBias;
};

struct FastPooling {
    PoolingType type;
    nolk::DimsHW kernel, stride;
    nolk::Padding padding;
};

struct FastReduce {
    nolk::BasicOp op;
};

struct FastInstanceNorm {
    FastChannelValues scale, bias;
    float epsilon;
};

struct FastL2Norm {};

struct FastSoftmaxAlong {
    int axis;  // 1 to 3
};

struct FastResize {
    nolk::ResizeMode mode;
    nolk::ResizeTransMode transMode;
};

struct FastMatmul {
    // The second operand, if it is constant: [samples, c, k, w]. The node has only one input then.
    const float* constant = nullptr;
    int samples = 0;  // 1 if all samples have the same
};

struct FastLstm {
    nolk::LstmWeights weights;
};

// Whatever has no layer of ours: `make` creates the built-in layer for these tensors.
struct FastBuiltIn {
    std::function<std::unique_ptr<Layer>(const std::vector<nolk::Tensor>& inputs, nolk::Tensor output)> make;
    std::int64_t outputFloats;  // that the layer may write
    double keptFloats = 0.0;    // of weights and vectors, which the layers of all arenas share
};

struct FastConcat {};  // along the channels

// Neighbouring channels. `plain` is the layer for a plain tensor.
struct FastSlice {
    int firstChannel;
    FastBuiltIn plain;
};

struct FastTransposition {
    nolk::Perm perm;
};

// The same elements, in order, in another shape.
struct FastReshape {};

// A copy in another layout, or with a border.
struct FastCopy {};

// Only the node's steps.
struct FastElementwise {};

using FastOperation =
    std::variant<FastConvolution, FastDeconvolution, FastConnection, FastPooling, FastReduce, FastInstanceNorm,
                 FastL2Norm, FastSoftmaxAlong, FastResize, FastMatmul, FastLstm, FastConcat, FastSlice,
                 FastTransposition, FastReshape, FastCopy, FastElementwise, FastBuiltIn>;

// What a step's operand is.
enum class FastOperandKind {
    none,
    tensor,    // a value of the same shape
    channels,  // a value [n, c, 1, 1], one element for each channel
    sample,    // a value [n, 1, 1, 1], one element for each sample
    constants  // first, and second for scaleAdd: a constant for each channel
};

struct FastNodeStep {
    FastStep step;
    FastOperandKind kind = FastOperandKind::none;
    int operand = -1;  // the value
    FastChannelValues first, second;
};

struct FastNode {
    FastOperation operation;
    std::vector<int> inputs;
    int output = -1;
    std::vector<FastNodeStep> steps;
    int call = -1;  // see nolk::LayerDescription
};
// Nodes move when a list of them grows. A copy would leave weights pointing into the original's arrays.
static_assert(std::is_nothrow_move_constructible_v<FastNode>);

struct FastValue {
    nolk::TensorShape shape;
    const float* constant = nullptr;  // plain and dense; null for values that are computed
    FastLayout layout = FastLayout::plain;
    FastBorder border;
    int host = -1;                   // number of the network's input, or -1
    std::int64_t minimumFloats = 0;  // that its layer may write, if more than the elements
    // A value without memory of its own lies in that of another one, `root`:
    int root = -1;          // -1 for none
    int further = -1;       // a later one of the chain of roots, if rootOf has followed it before
    int firstChannel = 0;   // a range of root's channels from here on,
    bool reshaped = false;  // or all of root's elements in another shape
};

struct FastGraph {
    std::vector<FastValue> values;
    std::vector<FastNode> nodes;
    std::vector<int> inputs, outputs;    // values, in the host's order
    std::vector<FloatBuffer> constants;  // that passes have made; after keepConstants, all that are read in a run

    int add(const FastValue& value);
    FastValue& at(int value) { return values[static_cast<std::size_t>(value)]; }
    const FastValue& at(int value) const { return values[static_cast<std::size_t>(value)]; }

    // The value in whose memory this one lies: itself, or the last of a chain of roots. Chains may be long; what is
    // found is remembered if the graph may change, which makes it fast to ask for each value. Roots may be added to the
    // end of a chain, and never change.
    int rootOf(int value) const;
    int rootOf(int value);

    // How many inputs and operands of nodes, and outputs of the network, each value is.
    std::vector<int> countUses() const;

    // True for each value in whose memory others lie.
    std::vector<bool> findRoots() const;
};

// Calls f(value) for all inputs and operands of a node; f may change them.
template <typename F>
void forEachSource(FastNode& node, F f) {
    for (int& value : node.inputs) f(value);
    for (FastNodeStep& step : node.steps)
        if (step.operand >= 0) f(step.operand);
}
template <typename F>
void forEachSource(const FastNode& node, F f) {
    for (const int value : node.inputs) f(value);
    for (const FastNodeStep& step : node.steps)
        if (step.operand >= 0) f(step.operand);
}
