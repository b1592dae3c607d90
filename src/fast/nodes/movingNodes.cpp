#include "fast/nodes/makeNode.h"

#include <algorithm>

#include "builder/shapes.h"
#include "fast/nodes/builtInNode.h"
#include "layers/RawConcatLayer.h"
#include "layers/RawConcatLayerFactory.h"
#include "layers/RawPaddingLayer.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawReshapeLayer.h"
#include "layers/RawReshapeLayerFactory.h"
#include "layers/RawSliceLayer.h"
#include "layers/RawSliceLayerFactory.h"
#include "layers/RawTransposeLayer.h"
#include "layers/RawTransposeLayerFactory.h"

using nolk::TensorShape;

namespace {

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

}  // namespace

FastNode concatNode(const RawConcatLayerFactory& f) {
    const TensorShape& out = f.output()->shape;
    bool regular = (f.axis() == 1 || f.axis() == -3) && elementCount(out) > 0;
    for (const nolk::TensorX* t : f.inputs) {
        const TensorShape& s = t->shape;
        regular = regular && elementCount(s) > 0 && s.n == out.n && s.h == out.h && s.w == out.w;
    }
    if (regular) return nodeWith(FastConcat{});
    const int axis = f.axis();
    return nodeWith(FastBuiltIn{[axis](const std::vector<nolk::Tensor>& in, nolk::Tensor o) -> std::unique_ptr<Layer> {
                                    return std::make_unique<RawConcatLayer>(in, o, axis);
                                },
                                elementCount(out)});
}

FastNode reshapeNode(const RawReshapeLayerFactory& f) {
    const int count = elementCount(f.input()->shape);
    const bool nchw = f.layout() != nolk::TensorLayout::nhwc;
    if (nchw && count > 0 && count == elementCount(f.output()->shape)) return nodeWith(FastReshape{});
    if (nchw) return nodeWith(builtIn<FastPartLayer>(f));
    return nodeWith(builtIn<RawReshapeLayer>(f, f.layout()));
}

FastNode sliceNode(const RawSliceLayerFactory& f) {
    FastBuiltIn layer = builtIn<RawSliceLayer>(f, f.pos());
    layer.outputFloats = std::max(layer.outputFloats, f.writtenFloats());
    const nolk::SlicePos pos = f.pos();
    const TensorShape& out = f.output()->shape;
    const bool channels = pos.axis == 1 && pos.step == 1 && f.input()->shape.dims == 3 &&
                          elementCount(f.input()->shape) > 0 && elementCount(out) > 0 && out.c == pos.end - pos.start;
    if (channels) return nodeWith(FastSlice{pos.start, std::move(layer)});
    return nodeWith(std::move(layer));
}

FastNode paddingNode(const RawPaddingLayerFactory& f) { return nodeWith(builtIn<RawPaddingLayer>(f, f.padding)); }

FastNode transposeNode(const RawTransposeLayerFactory& f) {
    bool found[4] = {false, false, false, false};
    for (const int axis : f.perm().axes) found[axis] = true;
    if (found[0] && found[1] && found[2] && found[3] && elementCount(f.input()->shape) > 0)
        return nodeWith(FastTransposition{f.perm()});
    return nodeWith(builtIn<RawTransposeLayer>(f, f.perm()));
}
