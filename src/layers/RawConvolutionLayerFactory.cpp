#include "layers/RawConvolutionLayerFactory.h"

#include <climits>
#include <cstdint>

#include "builder/refuse.h"
#include "builder/shapes.h"
#include "layers/RawConvolutionLayer.h"
#include "layers/weights.h"
#include "math/quotient.h"

RawConvolutionLayerFactory::RawConvolutionLayerFactory(nolk::TensorX* x, nolk::Padding amounts, nolk::DimsHW stride,
                                                       nolk::DimsHW dilation, nolk::Weights convolutionWeights,
                                                       int numThreads, int gemmThresh)
    : ConvolutionLayerFactory({x}),
      stride_(stride),
      dilation_(dilation),
      numThreads_(numThreads),
      gemmThresh_(gemmThresh) {
    padding = amounts;
    weights = convolutionWeights;
    const nolk::TensorShape& in = input()->shape;
    const int windowH = (weights.kernelH - 1) * dilation.h + 1;
    const int windowW = (weights.kernelW - 1) * dilation.w + 1;
    initOutput({in.n, weights.groups * weights.outChannels,
                windowPositions(in.h + padding.top + padding.bottom, windowH, stride.h),
                windowPositions(in.w + padding.left + padding.right, windowW, stride.w), 3});
}

bool RawConvolutionLayerFactory::isPointwise() const {
    return RawConvolutionLayer::isPointwise(weights, padding, stride_);
}

void RawConvolutionLayerFactory::check() const {
    const nolk::TensorShape& in = input()->shape;
    const nolk::TensorShape& out = output()->shape;
    if (!isRepresentable(in) || !isRepresentable(out) || elementCount(out) == 0) return;
    checkWeights("convolve", weights, true);

    const std::int64_t expected = static_cast<std::int64_t>(weights.groups) * weights.inChannels;
    const bool readsInput = weights.kernelH > 0 && weights.kernelW > 0;
    const bool fits = isPointwise() ? in.c >= expected : quotient(in.c, weights.groups) == weights.inChannels;
    if (readsInput && !fits)
        refuse("convolve: weights expect %lld input channels, input has %d", static_cast<long long>(expected), in.c);

    const std::int64_t positions = static_cast<std::int64_t>(out.h) * out.w;
    const std::int64_t columnLength = static_cast<std::int64_t>(weights.inChannels) * weights.kernelH * weights.kernelW;
    if (positions * columnLength > INT_MAX)
        refuse("convolve: %lld positions of %lld values exceed 2^31 - 1 floats of scratch",
               static_cast<long long>(positions), static_cast<long long>(columnLength));
}

std::unique_ptr<Layer> RawConvolutionLayerFactory::create() {
    return std::make_unique<RawConvolutionLayer>(input()->toTensor(), output()->toTensor(), padding, stride_, dilation_,
                                                 weights, numThreads_, gemmThresh_, givenArrays);
}
