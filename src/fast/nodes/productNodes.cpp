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
#include "layers/weights.h"

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
    // The layer may be created long after the caller has freed the arrays, so it gets copies of them.
    auto weight = std::make_shared<std::vector<float>>();
    auto bias = std::make_shared<std::vector<float>>();
    if (reads) weight->assign(w.weight, w.weight + std::ptrdiff_t{in.c} * out.c * w.kernelH * w.kernelW);
    if (w.bias && w.groups > 0 && elementCount(out) > 0) bias->assign(w.bias, w.bias + biasCount(w));
    const auto padding = f.padding();
    const auto stride = f.stride();
    return nodeWith(FastBuiltIn{
        [=](const std::vector<nolk::Tensor>& tensors, nolk::Tensor output) -> std::unique_ptr<Layer> {
            nolk::Weights own = w;
            own.weight = weight->empty() ? nullptr : weight->data();
            own.bias = bias->empty() ? nullptr : bias->data();
            return std::make_unique<RawDeConvolutionLayer>(tensors[0], output, padding, stride, own, nullptr);
        },
        elementCount(out)});
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
