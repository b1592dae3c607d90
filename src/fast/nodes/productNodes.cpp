#include "fast/nodes/makeNode.h"

#include "builder/shapes.h"
#include "fast/FastWindows.h"
#include "fast/nodes/builtInNode.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawDeConvolutionLayer.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "layers/RawMatmulLayer.h"
#include "layers/RawMatmulLayerFactory.h"

using nolk::TensorShape;

FastNode convolutionNode(const RawConvolutionLayerFactory& f) {
    return nodeWith(FastConvolution{f.padding, f.stride(), f.dilation(), f.weights});
}

FastNode deconvolutionNode(const RawDeConvolutionLayerFactory& f) {
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
    const auto arrays = RawDeConvolutionLayer::arraysOf(in, out, w, f.givenArrays);
    FastBuiltIn layer = builtIn<RawDeConvolutionLayer>(f, f.padding(), f.stride(), arrays);
    layer.keptFloats = static_cast<double>(arrays->bias.size());
    if (arrays->weight) layer.keptFloats += static_cast<double>(w.inChannels) * w.outChannels * w.kernelH * w.kernelW;
    return nodeWith(std::move(layer));
}

FastNode connectionNode(const RawFullConnectionLayerFactory& f) {
    return nodeWith(FastConnection{f.weights(), {}, {}});
}

FastNode matmulNode(const RawMatmulLayerFactory& f) {
    const TensorShape& a = f.inputs[0]->shape;
    const TensorShape& b = f.inputs[1]->shape;
    if (elementCount(a) > 0 && elementCount(b) > 0 && a.n == b.n && a.c == b.c && a.w == b.h)
        return nodeWith(FastMatmul{});
    return nodeWith(builtInOfTwo<RawMatmulLayer>(f));
}

FastNode lstmNode(const RawLstmLayerFactory& f) { return nodeWith(FastLstm{f.weights()}); }
