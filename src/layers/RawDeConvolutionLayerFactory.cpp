#include "layers/RawDeConvolutionLayerFactory.h"

#include <climits>
#include <cstdint>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawDeConvolutionLayer.h"

RawDeConvolutionLayerFactory::RawDeConvolutionLayerFactory(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride,
                                                           nolk::DimsHW dilation, const nolk::Weights& weights)
    : DeConvolutionLayerFactory({x}), padding_(padding), stride_(stride), weights_(weights) {
    const nolk::TensorShape& in = input()->shape;
    const int h = (weights.kernelH - 1) * dilation.h + 1 + (in.h - 1) * stride.h - padding.top - padding.bottom;
    const int w = (weights.kernelW - 1) * dilation.w + 1 + (in.w - 1) * stride.w - padding.left - padding.right;
    initOutput({in.n, weights.groups * weights.outChannels, h, w, 3});
}

void RawDeConvolutionLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const nolk::Weights& w = weights_;
    if (static_cast<std::int64_t>(w.groups) * w.outChannels != output()->shape.c)
        refuse("deConvolve: output channels must fit 32 bits, are %d x %d", w.groups, w.outChannels);
    if (!RawDeConvolutionLayer::hasProducts(in, output()->shape, w)) return;
    if (w.groups > 1) refuse("deConvolve: groups must be 1, are %d", w.groups);
    if (w.kernelH < 0) refuse("deConvolve: kernel must not be negative, is %d x %d", w.kernelH, w.kernelW);
    if (in.c > w.inChannels) refuse("deConvolve: weights expect %d input channels, input has %d", w.inChannels, in.c);
    if (static_cast<double>(in.c) * w.outChannels * w.kernelH * w.kernelW > INT_MAX)
        refuse("deConvolve: weights must hold at most 2^31 - 1 floats, are %d x %d x %d x %d", in.c, w.outChannels,
               w.kernelH, w.kernelW);
    if (!w.weight) refuse("deConvolve: weights must not be null");
}

std::unique_ptr<Layer> RawDeConvolutionLayerFactory::create() {
    const nolk::Tensor in = input()->toTensor(), out = output()->toTensor();
    return std::make_unique<RawDeConvolutionLayer>(
        in, out, padding_, stride_, RawDeConvolutionLayer::arraysOf(in.shape, out.shape, weights_, givenArrays));
}
