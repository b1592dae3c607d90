#include "fast/readFastGraph.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <unordered_map>

#include "builder/shapes.h"
#include "fast/FastWindows.h"
#include "layers/RawActLayer.h"
#include "layers/RawActLayerFactory.h"
#include "layers/RawBatchNormalizationLayer.h"
#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawConcatLayer.h"
#include "layers/RawConcatLayerFactory.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawDeConvolutionLayer.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawEltwiseLayer.h"
#include "layers/RawEltwiseLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawInstanceNormalizationLayer.h"
#include "layers/RawInstanceNormalizationLayerFactory.h"
#include "layers/RawL2NormalizationLayer.h"
#include "layers/RawL2NormalizationLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "layers/RawMatmulLayer.h"
#include "layers/RawMatmulLayerFactory.h"
#include "layers/RawPaddingLayer.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawPoolingLayer.h"
#include "layers/RawPoolingLayerFactory.h"
#include "layers/RawReductionLayer.h"
#include "layers/RawReductionLayerFactory.h"
#include "layers/RawReshapeLayer.h"
#include "layers/RawReshapeLayerFactory.h"
#include "layers/RawResizeLayer.h"
#include "layers/RawResizeLayerFactory.h"
#include "layers/RawSliceLayer.h"
#include "layers/RawSliceLayerFactory.h"
#include "layers/RawSoftMaxLayer.h"
#include "layers/RawSoftMaxLayerFactory.h"
#include "layers/RawTransposeLayer.h"
#include "layers/RawTransposeLayerFactory.h"
#include "layers/weights.h"

namespace {

using Tensors = std::vector<nolk::Tensor>;
using nolk::TensorShape;

bool sameExtents(const TensorShape& a, const TensorShape& b) {
    return a.n == b.n && a.c == b.c && a.h == b.h && a.w == b.w;
}

template <typename LayerType, typename... Args>
FastBuiltIn builtIn(const LayerFactory& factory, Args... args) {
    return {[args...](const Tensors& in, nolk::Tensor out) -> std::unique_ptr<Layer> {
                return std::make_unique<LayerType>(in[0], out, args...);
            },
            elementCount(factory.output()->shape)};
}

template <typename LayerType, typename... Args>
FastBuiltIn builtInOfTwo(const LayerFactory& factory, Args... args) {
    return {[args...](const Tensors& in, nolk::Tensor out) -> std::unique_ptr<Layer> {
                return std::make_unique<LayerType>(in[0], in[1], out, args...);
            },
            elementCount(factory.output()->shape)};
}

FastNode nodeWith(FastOperation operation) { return {std::move(operation), {}, -1, {}, -1}; }

FastNode elementwise(FastNodeStep step) {
    FastNode node = nodeWith(FastElementwise{});
    node.steps.push_back(std::move(step));
    return node;
}

// With fewer channels, blocks would be mostly unused lanes.
constexpr int kFewChannels = 4;

// Each function makes the node of one factory; inputs, output and call are filled in later.

FastNode convolution(const RawConvolutionLayerFactory& f) {
    return nodeWith(FastConvolution{f.padding, f.stride(), f.dilation(), f.weights});
}

FastNode deconvolution(const RawDeConvolutionLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    const TensorShape& out = f.output()->shape;
    const nolk::Weights& w = f.weights();
    const bool reads = elementCount(out) > 0 && RawDeConvolutionLayer::hasProducts(in, out, w);
    const nolk::Padding& p = f.padding();
    // A dilation below 1 makes the output too small for some of the products, which the built-in layer leaves out.
    const bool allProducts =
        std::int64_t{out.h} + p.top + p.bottom - w.kernelH >= (std::int64_t{in.h} - 1) * f.stride().h &&
        std::int64_t{out.w} + p.left + p.right - w.kernelW >= (std::int64_t{in.w} - 1) * f.stride().w;
    FastDeconvolution op{f.padding(), f.stride(), w, {}, {}};
    // With a large stride there would be very many phases, each with weights of its own.
    const bool fewPhases = f.stride().h > 0 && f.stride().w > 0 && std::int64_t{f.stride().h} * f.stride().w <= 64;
    const bool regular = elementCount(in) > 0 && reads && w.groups == 1 && fewPhases && allProducts &&
                         isReasonable(borderOf(op, in, out), in);
    if (regular) return nodeWith(std::move(op));
    // The layer may be created long after the caller has freed the arrays, so it gets copies of them.
    auto weight = std::make_shared<std::vector<float>>();
    auto bias = std::make_shared<std::vector<float>>();
    if (reads) weight->assign(w.weight, w.weight + std::ptrdiff_t{in.c} * out.c * w.kernelH * w.kernelW);
    if (w.bias && w.groups > 0 && elementCount(out) > 0) bias->assign(w.bias, w.bias + biasCount(w));
    const auto padding = f.padding();
    const auto stride = f.stride();
    return nodeWith(FastBuiltIn{[=](const Tensors& tensors, nolk::Tensor output) -> std::unique_ptr<Layer> {
                                    nolk::Weights own = w;
                                    own.weight = weight->empty() ? nullptr : weight->data();
                                    own.bias = bias->empty() ? nullptr : bias->data();
                                    return std::make_unique<RawDeConvolutionLayer>(tensors[0], output, padding, stride,
                                                                                   own, nullptr);
                                },
                                elementCount(out)});
}

FastNode connection(const RawFullConnectionLayerFactory& f) { return nodeWith(FastConnection{f.weights(), {}, {}}); }

FastNode activation(const RawActLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    FastNodeStep step;
    switch (f.type()) {
        case ACT_RELU:
            step.step = {FastStepKind::relu, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_SIGMOID:
            step.step = {FastStepKind::sigmoid, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_EXP:
            step.step = {FastStepKind::exp, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_CLIP:
            step.step = {FastStepKind::clip, f.p0(), f.p1()};
            return elementwise(step);
        case ACT_HARD_SIGMOID:
            step.step = {FastStepKind::hardSigmoid, f.p2(), f.p3()};
            return elementwise(step);
        case ACT_ABS:
            step.step = {FastStepKind::abs, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_LEAKY_RELU:
            step.step = {FastStepKind::leakyRelu, f.p2(), 0.0f};
            return elementwise(step);
        case ACT_TANH:
            step.step = {FastStepKind::tanh, 0.0f, 0.0f};
            return elementwise(step);
        case ACT_PRELU:
            // In a batch above 1 the slopes do not follow the channels; the built-in layer has the rule.
            if (in.n != 1 || elementCount(in) == 0) break;
            step.step = {FastStepKind::prelu, 0.0f, 0.0f};
            step.kind = FastOperandKind::constants;
            step.first = f.slopes().first(in.c);
            return elementwise(step);
    }
    return nodeWith(builtIn<RawActLayer>(f, f.type(), f.slopes(), f.p0(), f.p1(), f.p2(), f.p3()));
}

FastNode eltwise(const RawEltwiseLayerFactory& f) {
    static constexpr FastStepKind kKinds[] = {FastStepKind::add, FastStepKind::sub, FastStepKind::mul,
                                              FastStepKind::div, FastStepKind::max};
    const TensorShape& a = f.inputs[0]->shape;
    const TensorShape& b = f.inputs[1]->shape;
    FastNodeStep step;
    if (sameExtents(a, b))
        step.kind = FastOperandKind::tensor;
    else if (a.n == b.n && b.h == 1 && b.w == 1 && b.c == a.c)
        step.kind = FastOperandKind::channels;
    else if (a.n == b.n && b.h == 1 && b.w == 1 && b.c == 1)
        step.kind = FastOperandKind::sample;
    const bool known = f.type() >= ELTWISE_ADD && f.type() <= ELTWISE_MAX;
    if (!known || elementCount(a) == 0 || elementCount(b) == 0 || step.kind == FastOperandKind::none)
        return nodeWith(builtInOfTwo<RawEltwiseLayer>(f, f.type()));
    step.step.kind = kKinds[f.type()];
    return elementwise(step);
}

// y = factor * x + addend, for each channel. In double, so that each is rounded once.
FastNode batchNormalization(const RawBatchNormalizationLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    if (elementCount(in) == 0)
        return nodeWith(builtIn<RawBatchNormalizationLayer>(f, f.scale, f.bias, f.mean, f.variance, f.epsilon));
    FastNodeStep step;
    step.step.kind = FastStepKind::scaleAdd;
    step.kind = FastOperandKind::constants;
    for (std::size_t c = 0; c < static_cast<std::size_t>(in.c); ++c) {
        const double factor = static_cast<double>(f.scale[c]) /
                              std::sqrt(static_cast<double>(f.variance[c]) + static_cast<double>(f.epsilon));
        step.first.push_back(static_cast<float>(factor));
        step.second.push_back(
            static_cast<float>(static_cast<double>(f.bias[c]) - static_cast<double>(f.mean[c]) * factor));
    }
    return elementwise(step);
}

FastNode pooling(const RawPoolingLayerFactory& f) {
    const nolk::Padding& p = f.padding;
    const bool regular = elementCount(f.input()->shape) > 0 && elementCount(f.output()->shape) > 0 && f.kernel.h > 0 &&
                         f.kernel.w > 0 && f.stride.h > 0 && f.stride.w > 0 &&
                         std::min({p.top, p.bottom, p.left, p.right}) >= 0 && f.input()->shape.c >= kFewChannels;
    if (regular) return nodeWith(FastPooling{f.type, f.kernel, f.stride, f.padding});
    return nodeWith(builtIn<RawPoolingLayer>(f, f.type, f.kernel, f.padding, f.stride));
}

FastNode reduction(const RawReductionLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    const TensorShape& out = f.output()->shape;
    const auto fits = [](int from, int to) { return to == from || to == 1; };
    const bool known = f.op() >= nolk::BasicOp::maximum && f.op() <= nolk::BasicOp::minimum;
    // Channels and columns without the rows between them are not one extent.
    const bool apart = in.c != out.c && in.h == out.h && in.h > 1 && in.w != out.w;
    const bool regular = known && elementCount(in) > 0 && elementCount(out) > 0 && in.n == out.n && fits(in.c, out.c) &&
                         fits(in.h, out.h) && fits(in.w, out.w) && !sameExtents(in, out) && !apart;
    if (regular) return nodeWith(FastReduce{f.op()});
    return nodeWith(builtIn<RawReductionLayer>(f, f.op()));
}

FastNode instanceNormalization(const RawInstanceNormalizationLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    if (elementCount(in) > 0)
        return nodeWith(FastInstanceNorm{f.scale().first(in.c), f.bias().first(in.c), f.epsilon()});
    return nodeWith(builtIn<RawInstanceNormalizationLayer>(f, f.scale(), f.bias(), f.epsilon()));
}

FastNode l2Normalization(const RawL2NormalizationLayerFactory& f) {
    if (elementCount(f.input()->shape) > 0) return nodeWith(FastL2Norm{});
    return nodeWith(builtIn<RawL2NormalizationLayer>(f));
}

// The softmax of an unknown axis: the built-in layer only prints a message, and leaves the values as they are.
class FastUnknownSoftmaxLayer final : public Layer {
public:
    FastUnknownSoftmaxLayer(nolk::Tensor input, nolk::Tensor output, int axis)
        : input_(input), output_(output), builtIn_(output, output, axis) {}

    void run(AlignedMemory<float>& scratch) override {
        std::copy_n(input_.data, elementCount(input_.shape), output_.data);
        builtIn_.run(scratch);
    }

private:
    nolk::Tensor input_, output_;
    RawSoftMaxLayer builtIn_;
};

FastNode softmax(const RawSoftMaxLayerFactory& f) {
    const bool known = f.axis() >= 1 && f.axis() <= 3;
    if (known && elementCount(f.input()->shape) > 0) return nodeWith(FastSoftmaxAlong{f.axis()});
    if (known) return nodeWith(builtIn<RawSoftMaxLayer>(f, f.axis()));
    return nodeWith(builtIn<FastUnknownSoftmaxLayer>(f, f.axis()));
}

FastNode resize(const RawResizeLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    const TensorShape& out = f.output()->shape;
    const bool known = f.mode() == nolk::ResizeMode::linear || f.mode() == nolk::ResizeMode::nearest;
    if (known && elementCount(in) > 0 && elementCount(out) > 0 && in.n == out.n && in.c == out.c &&
        in.c >= kFewChannels)
        return nodeWith(FastResize{f.mode(), f.transMode()});
    return nodeWith(builtIn<RawResizeLayer>(f, f.mode(), f.transMode()));
}

FastNode matmul(const RawMatmulLayerFactory& f) {
    const TensorShape& a = f.inputs[0]->shape;
    const TensorShape& b = f.inputs[1]->shape;
    if (elementCount(a) > 0 && elementCount(b) > 0 && a.n == b.n && a.c == b.c && a.w == b.h)
        return nodeWith(FastMatmul{});
    return nodeWith(builtInOfTwo<RawMatmulLayer>(f));
}

FastNode lstm(const RawLstmLayerFactory& f) { return nodeWith(FastLstm{f.weights()}); }

FastNode concat(const RawConcatLayerFactory& f) {
    const TensorShape& out = f.output()->shape;
    bool regular = (f.axis() == 1 || f.axis() == -3) && elementCount(out) > 0;
    for (const nolk::TensorX* t : f.inputs) {
        const TensorShape& s = t->shape;
        regular = regular && elementCount(s) > 0 && s.n == out.n && s.h == out.h && s.w == out.w;
    }
    if (regular) return nodeWith(FastConcat{});
    const int axis = f.axis();
    return nodeWith(FastBuiltIn{[axis](const Tensors& in, nolk::Tensor o) -> std::unique_ptr<Layer> {
                                    return std::make_unique<RawConcatLayer>(in, o, axis);
                                },
                                elementCount(out)});
}

// A reshape to another number of elements: copies as many as fit, in plain order, and adds zeros.
class FastPartLayer final : public Layer {
public:
    FastPartLayer(nolk::Tensor input, nolk::Tensor output) : input_(input), output_(output) { desc = "reshape"; }

    void run(AlignedMemory<float>&) override {
        const int out = elementCount(output_.shape);
        const int count = std::min(elementCount(input_.shape), out);
        std::fill_n(std::copy_n(input_.data, count, output_.data), out - count, 0.0f);
    }

private:
    nolk::Tensor input_, output_;
};

FastNode reshape(const RawReshapeLayerFactory& f) {
    const int count = elementCount(f.input()->shape);
    const bool nchw = f.layout() != nolk::TensorLayout::nhwc;
    if (nchw && count > 0 && count == elementCount(f.output()->shape)) return nodeWith(FastReshape{});
    if (nchw) return nodeWith(builtIn<FastPartLayer>(f));
    return nodeWith(builtIn<RawReshapeLayer>(f, f.layout()));
}

FastNode slice(const RawSliceLayerFactory& f) {
    FastBuiltIn layer = builtIn<RawSliceLayer>(f, f.pos());
    layer.outputFloats = std::max(layer.outputFloats, f.writtenFloats());
    const nolk::SlicePos pos = f.pos();
    const TensorShape& out = f.output()->shape;
    const bool channels = pos.axis == 1 && pos.step == 1 && f.input()->shape.dims == 3 &&
                          elementCount(f.input()->shape) > 0 && elementCount(out) > 0 && out.c == pos.end - pos.start;
    if (channels) return nodeWith(FastSlice{pos.start, std::move(layer)});
    return nodeWith(std::move(layer));
}

FastNode padding(const RawPaddingLayerFactory& f) { return nodeWith(builtIn<RawPaddingLayer>(f, f.padding)); }

FastNode transpose(const RawTransposeLayerFactory& f) {
    bool found[4] = {false, false, false, false};
    for (const int axis : f.perm().axes) found[axis] = true;
    if (found[0] && found[1] && found[2] && found[3] && elementCount(f.input()->shape) > 0)
        return nodeWith(FastTransposition{f.perm()});
    return nodeWith(builtIn<RawTransposeLayer>(f, f.perm()));
}

// Tries one function after the other; the first whose factory it is makes the node.
template <typename... Factories>
FastNode nodeOf(LayerFactory& factory, FastNode (*... make)(Factories&)) {
    FastNode node = nodeWith(FastElementwise{});
    const bool found = ([&] {
        auto* const typed = dynamic_cast<std::remove_const_t<Factories>*>(&factory);
        if (typed) node = make(*typed);
        return typed != nullptr;
    }() || ...);
    if (!found) throw std::logic_error("NolkFast does not know an operation");
    return node;
}

FastNode nodeOf(LayerFactory& factory) {
    return nodeOf(factory, convolution, deconvolution, connection, activation, eltwise, batchNormalization, pooling,
                  reduction, instanceNormalization, l2Normalization, softmax, resize, matmul, lstm, concat, reshape,
                  slice, padding, transpose);
}

}  // namespace

FastGraph readFastGraph(const std::vector<std::unique_ptr<LayerFactory>>& factories,
                        const std::vector<std::unique_ptr<nolk::TensorX>>& inputs,
                        const std::vector<nolk::TensorX*>& outputs) {
    FastGraph graph;
    std::unordered_map<const nolk::TensorX*, int> ids;
    const auto valueOf = [&](const nolk::TensorX* t) {
        const auto [found, isNew] = ids.emplace(t, 0);
        if (isNew) {
            FastValue value;
            value.shape = t->shape;
            if (t->isConst) value.constant = t->rawTensor->data;
            found->second = graph.add(value);
        }
        return found->second;
    };
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        graph.inputs.push_back(valueOf(inputs[i].get()));
        graph.values.back().host = static_cast<int>(i);
    }
    for (const auto& factory : factories) {
        FastNode node = nodeOf(*factory);
        for (const nolk::TensorX* t : factory->inputs) node.inputs.push_back(valueOf(t));
        if (std::holds_alternative<FastElementwise>(node.operation) && node.inputs.size() == 2) {
            node.steps.front().operand = node.inputs.back();
            node.inputs.pop_back();
        }
        node.output = valueOf(factory->output());
        node.call = factory->call;
        graph.nodes.push_back(std::move(node));
    }
    for (const nolk::TensorX* t : outputs) graph.outputs.push_back(valueOf(t));
    return graph;
}
