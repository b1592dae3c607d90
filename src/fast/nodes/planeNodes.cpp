#include "fast/nodes/makeNode.h"

#include <algorithm>

#include "builder/shapes.h"
#include "fast/nodes/builtInNode.h"
#include "layers/RawInstanceNormalizationLayer.h"
#include "layers/RawInstanceNormalizationLayerFactory.h"
#include "layers/RawL2NormalizationLayer.h"
#include "layers/RawL2NormalizationLayerFactory.h"
#include "layers/RawPoolingLayer.h"
#include "layers/RawPoolingLayerFactory.h"
#include "layers/RawReductionLayer.h"
#include "layers/RawReductionLayerFactory.h"
#include "layers/RawResizeLayer.h"
#include "layers/RawResizeLayerFactory.h"
#include "layers/RawSoftMaxLayer.h"
#include "layers/RawSoftMaxLayerFactory.h"

using nolk::TensorShape;

namespace {

// With fewer channels, blocks would be mostly unused lanes.
constexpr int kFewChannels = 4;

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

}  // namespace

FastNode poolingNode(const RawPoolingLayerFactory& f) {
    const nolk::Padding& p = f.padding;
    const bool regular = elementCount(f.input()->shape) > 0 && elementCount(f.output()->shape) > 0 && f.kernel.h > 0 &&
                         f.kernel.w > 0 && f.stride.h > 0 && f.stride.w > 0 &&
                         std::min({p.top, p.bottom, p.left, p.right}) >= 0 && f.input()->shape.c >= kFewChannels;
    if (regular) return nodeWith(FastPooling{f.type, f.kernel, f.stride, f.padding});
    return nodeWith(builtIn<RawPoolingLayer>(f, f.type, f.kernel, f.padding, f.stride));
}

FastNode reductionNode(const RawReductionLayerFactory& f) {
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

FastNode instanceNormalizationNode(const RawInstanceNormalizationLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    const auto valuesOf = [&in](const ChannelVector& vector, float ifNone) {
        return vector.empty() ? FastChannelValues({ifNone}, in.c) : FastChannelValues(vector, in.c);
    };
    if (elementCount(in) > 0)
        return nodeWith(FastInstanceNorm{valuesOf(f.scale(), 1.0f), valuesOf(f.bias(), 0.0f), f.epsilon()});
    return nodeWith(builtIn<RawInstanceNormalizationLayer>(f, f.scale(), f.bias(), f.epsilon()));
}

FastNode l2NormalizationNode(const RawL2NormalizationLayerFactory& f) {
    if (elementCount(f.input()->shape) > 0) return nodeWith(FastL2Norm{});
    return nodeWith(builtIn<RawL2NormalizationLayer>(f));
}

FastNode softmaxNode(const RawSoftMaxLayerFactory& f) {
    const bool known = f.axis() >= 1 && f.axis() <= 3;
    if (known && elementCount(f.input()->shape) > 0) return nodeWith(FastSoftmaxAlong{f.axis()});
    if (known) return nodeWith(builtIn<RawSoftMaxLayer>(f, f.axis()));
    return nodeWith(builtIn<FastUnknownSoftmaxLayer>(f, f.axis()));
}

FastNode resizeNode(const RawResizeLayerFactory& f) {
    const TensorShape& in = f.input()->shape;
    const TensorShape& out = f.output()->shape;
    const bool known = f.mode() == nolk::ResizeMode::linear || f.mode() == nolk::ResizeMode::nearest;
    if (known && elementCount(in) > 0 && elementCount(out) > 0 && in.n == out.n && in.c == out.c &&
        in.c >= kFewChannels)
        return nodeWith(FastResize{f.mode(), f.transMode()});
    return nodeWith(builtIn<RawResizeLayer>(f, f.mode(), f.transMode()));
}
