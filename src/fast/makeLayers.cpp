#include "fast/makeLayers.h"

#include "fast/FastWindows.h"
#include "fast/layers/FastBuiltInLayer.h"
#include "fast/layers/FastChannelsLayer.h"
#include "fast/layers/FastConnectionLayer.h"
#include "fast/layers/FastConvolutionLayer.h"
#include "fast/layers/FastCopyLayer.h"
#include "fast/layers/FastDeconvolutionLayer.h"
#include "fast/layers/FastDepthwiseLayer.h"
#include "fast/layers/FastElementwiseLayer.h"
#include "fast/layers/FastGatheredConvolutionLayer.h"
#include "fast/layers/FastLstmLayer.h"
#include "fast/layers/FastMatmulLayer.h"
#include "fast/layers/FastPlaneLayers.h"
#include "fast/layers/FastRowLayers.h"
#include "fast/layers/FastTransposeLayer.h"

namespace {

using LayerPtr = std::unique_ptr<FastLayer>;

// What is known when a node's layer is made.
struct Place {
    const FastNode& node;
    const std::vector<FastView>& views;
    std::ptrdiff_t scratch;
    int numThreads;
    std::size_t& builtInCount;

    const FastView& view(int value) const { return views[static_cast<std::size_t>(value)]; }
    const FastView& input() const { return view(node.inputs.front()); }
    const FastView& output() const { return view(node.output); }
};

template <typename LayerType, typename... Args>
LayerPtr named(const char* kind, Args&&... args) {
    auto layer = std::make_unique<LayerType>(std::forward<Args>(args)...);
    layer->kind = kind;
    return layer;
}

LayerPtr make(const FastConvolution& op, const Place& at) {
    switch (kindOf(op, at.input().shape, at.output().shape)) {
        case FastConvolutionKind::depthwise:
            return named<FastDepthwiseLayer>("depthwise conv", at.node, op, at.input(), at.output(), at.views);
        case FastConvolutionKind::direct:
            return named<FastConvolutionLayer>("conv", at.node, op, at.input(), at.output(), at.views, at.scratch);
        case FastConvolutionKind::gathered:
            break;
    }
    return named<FastGatheredConvolutionLayer>("gathered conv", at.node, op, at.input(), at.output(), at.views,
                                               at.scratch, at.numThreads);
}

LayerPtr make(const FastDeconvolution& op, const Place& at) {
    return named<FastDeconvolutionLayer>("deconv", at.node, op, at.input(), at.output(), at.views, at.scratch);
}

LayerPtr make(const FastConnection& op, const Place& at) {
    return named<FastConnectionLayer>("fc", at.node, op, at.input(), at.output(), at.views);
}

LayerPtr make(const FastPooling& op, const Place& at) {
    return named<FastPoolingLayer>("pool", at.node, op, at.input(), at.output(), at.views);
}

LayerPtr make(const FastReduce& op, const Place& at) {
    if (at.input().layout == FastLayout::blocks)
        return named<FastPlaneReductionLayer>("reduce", op.op, at.input(), at.output());
    return named<FastReductionLayer>("reduce", op.op, at.input(), at.output());
}

LayerPtr make(const FastInstanceNorm& op, const Place& at) {
    return named<FastInstanceNormalizationLayer>("instanceNorm", at.node, op, at.input(), at.output(), at.views);
}

LayerPtr make(const FastL2Norm&, const Place& at) {
    return named<FastL2NormalizationLayer>("l2norm", at.input(), at.output());
}

LayerPtr make(const FastSoftmaxAlong& op, const Place& at) {
    return named<FastSoftmaxLayer>("softmax", op.axis, at.input(), at.output());
}

LayerPtr make(const FastResize& op, const Place& at) {
    return named<FastResizeLayer>("resize", at.node, op, at.input(), at.output(), at.views, at.scratch);
}

LayerPtr make(const FastMatmul& op, const Place& at) {
    const FastView second = op.constant ? FastView{} : at.view(at.node.inputs[1]);
    return named<FastMatmulLayer>("matmul", at.node, op, at.input(), second, at.output(), at.views, at.scratch,
                                  at.numThreads);
}

LayerPtr make(const FastLstm& op, const Place& at) {
    return named<FastLstmLayer>("LSTM", op.weights, at.input(), at.output(), at.scratch);
}

LayerPtr make(const FastCopy&, const Place& at) { return named<FastCopyLayer>("copy", at.input(), at.output()); }

LayerPtr make(const FastElementwise&, const Place& at) {
    return named<FastElementwiseLayer>("eltwise", at.node, at.input(), at.output(), at.views);
}

std::vector<FastView> inputsOf(const Place& at) {
    std::vector<FastView> inputs;
    for (const int input : at.node.inputs) inputs.push_back(at.view(input));
    return inputs;
}

LayerPtr make(const FastBuiltIn& op, const Place& at) {
    return named<FastBuiltInLayer>("built-in", op, inputsOf(at), at.output(), at.builtInCount++);
}

LayerPtr make(const FastConcat&, const Place& at) {
    return named<FastChannelsLayer>("concat", inputsOf(at), 0, at.output());
}

LayerPtr make(const FastSlice& op, const Place& at) {
    return named<FastChannelsLayer>("slice", inputsOf(at), op.firstChannel, at.output());
}

LayerPtr make(const FastTransposition& op, const Place& at) {
    return named<FastTransposeLayer>("transpose", op.perm, at.input(), at.output());
}

// A pass has turned these into views of memory.
LayerPtr make(const FastReshape&, const Place&) { return nullptr; }

template <typename Operation>
void release(const Operation&, FloatArrays&) {}
void release(const FastConvolution& op, FloatArrays& given) { given.take(op.weights.weight); }
void release(const FastDeconvolution& op, FloatArrays& given) { given.take(op.weights.weight); }
void release(const FastConnection& op, FloatArrays& given) { given.take(op.weights.weight); }
void release(const FastMatmul& op, FloatArrays& given) { given.take(op.constant); }
void release(const FastLstm& op, FloatArrays& given) {
    given.take(op.weights.inputWeights);
    given.take(op.weights.recurrentWeights);
}

// Floats that a node's layer packs or keeps, and its lists of taps take. Doubles, because some products of extents are
// bounded by nothing but memory.
struct KeptFloats {
    const nolk::TensorShape& in;
    const nolk::TensorShape& out;

    double operator()(const FastConvolution& op) const {
        const nolk::Weights& w = op.weights;
        const FastConvolutionKind kind = kindOf(op, in, out);
        if (kind != FastConvolutionKind::depthwise)
            return FastProductParts::packedFloats(w, kind == FastConvolutionKind::direct ? w.groups : 1);
        return double(blocksOf(out.c)) * kFastBlock * (double(w.kernelH) * w.kernelW + 1);
    }
    double operator()(const FastDeconvolution& op) const {
        const nolk::Weights& w = op.weights;
        const double lanes = double(blocksOf(w.outChannels)) * kFastBlock;
        return double(w.kernelH) * w.kernelW * (lanes * (double(in.c) + 1) + in.c);
    }
    double operator()(const FastConnection& op) const {
        return FastProductParts::packedFloats(FastConnectionLayer::weightsOf(op, in));
    }
    double operator()(const FastLstm& op) const {
        const nolk::LstmWeights& w = op.weights;
        const double lanes = double(blocksOf(4 * w.hiddenSize)) * kFastBlock;
        const double taps = double(w.inputSize) + w.hiddenSize;
        return w.numDirections * (lanes * (taps + 2) + taps);
    }
    double operator()(const FastMatmul& op) const {
        return double(op.samples) * out.c * blocksOf(out.w) * kFastBlock * in.w;
    }
    double operator()(const FastInstanceNorm& op) const { return double(op.scale.floats() + op.bias.floats()); }
    double operator()(const FastBuiltIn& op) const { return op.keptFloats; }
    template <typename Operation>
    double operator()(const Operation&) const {
        return 0.0;
    }
};

}  // namespace

double keptFloats(const FastGraph& graph, int arenas) {
    double floats = 0.0, scratch = 0.0;
    for (const FastNode& node : graph.nodes) {
        floats +=
            std::visit(KeptFloats{graph.at(node.inputs.front()).shape, graph.at(node.output).shape}, node.operation);
        for (const FastNodeStep& step : node.steps) floats += double(step.first.floats() + step.second.floats());
        if (std::holds_alternative<FastBuiltIn>(node.operation)) scratch = FastBuiltInLayer::kScratch;
    }
    return floats + scratch * arenas;
}

std::vector<std::int64_t> scratchFloatsOf(const FastGraph& graph, int numThreads) {
    std::vector<std::int64_t> floats;
    for (const FastNode& node : graph.nodes) {
        const nolk::TensorShape& in = graph.at(node.inputs.front()).shape;
        const nolk::TensorShape& out = graph.at(node.output).shape;
        std::int64_t count = 0;
        const auto* convolution = std::get_if<FastConvolution>(&node.operation);
        if (convolution && convolution->hasFactors)
            count = FastConvolutionLayer::scratchFloats(*convolution);
        else if (convolution && kindOf(*convolution, in, out) == FastConvolutionKind::gathered)
            count = FastGatheredConvolutionLayer::scratchFloats(*convolution, out, numThreads);
        if (const auto* deconvolution = std::get_if<FastDeconvolution>(&node.operation))
            count = FastDeconvolutionLayer::scratchFloats(*deconvolution, in, out);
        if (const auto* matmul = std::get_if<FastMatmul>(&node.operation))
            count = FastMatmulLayer::scratchFloats(*matmul, out, in.w, numThreads);
        if (std::holds_alternative<FastResize>(node.operation)) count = FastResizeLayer::scratchFloats(out);
        if (const auto* lstm = std::get_if<FastLstm>(&node.operation))
            count = FastLstmLayer::scratchFloats(lstm->weights, out);
        floats.push_back(count);
    }
    return floats;
}

std::vector<LayerPtr> makeLayers(const FastGraph& graph, const FastPlan& plan, int numThreads, FloatArrays& given) {
    std::vector<LayerPtr> layers;
    std::size_t builtInCount = 0;
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
        const FastNode& node = graph.nodes[i];
        const Place place{node, plan.views, plan.scratch[i], numThreads, builtInCount};
        LayerPtr layer = std::visit([&](const auto& op) { return make(op, place); }, node.operation);
        std::visit([&](const auto& op) { release(op, given); }, node.operation);
        if (!layer) continue;
        layer->outputShape = place.output().shape;
        layer->recordedCall = node.call;
        layers.push_back(std::move(layer));
    }
    return layers;
}
