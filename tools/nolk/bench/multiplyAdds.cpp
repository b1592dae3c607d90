#include "nolk/bench/multiplyAdds.h"

#include "builder/shapes.h"
#include "layers/ConvolutionLayerFactory.h"
#include "layers/MatmulLayerFactory.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "math/quotient.h"

namespace {

std::int64_t product(std::int64_t a, std::int64_t b, std::int64_t c) { return a * b * c; }

std::int64_t ofDeConvolution(const RawDeConvolutionLayerFactory& factory) {
    const nolk::Weights& w = factory.weights();
    return elementCount(factory.input()->shape) * product(factory.output()->shape.c, w.kernelH, w.kernelW);
}

std::int64_t ofFullConnection(const RawFullConnectionLayerFactory& factory) {
    return static_cast<std::int64_t>(elementCount(factory.output()->shape)) *
           quotient(factory.input()->shape.c, factory.weights().groups);
}

// Four gates, each of a row of the input and a row of the last output.
std::int64_t ofLstm(const RawLstmLayerFactory& factory) {
    const nolk::LstmWeights& w = factory.weights();
    return elementCount(factory.output()->shape) * product(4, static_cast<std::int64_t>(w.inputSize) + w.hiddenSize, 1);
}

}  // namespace

std::int64_t multiplyAdds(const LayerFactory& factory) {
    if (const auto* conv = dynamic_cast<const ConvolutionLayerFactory*>(&factory))
        return elementCount(conv->output()->shape) *
               product(conv->weights.inChannels, conv->weights.kernelH, conv->weights.kernelW);
    if (const auto* deconv = dynamic_cast<const RawDeConvolutionLayerFactory*>(&factory))
        return ofDeConvolution(*deconv);
    if (const auto* fc = dynamic_cast<const RawFullConnectionLayerFactory*>(&factory)) return ofFullConnection(*fc);
    if (const auto* lstm = dynamic_cast<const RawLstmLayerFactory*>(&factory)) return ofLstm(*lstm);
    if (const auto* matmul = dynamic_cast<const MatmulLayerFactory*>(&factory))
        return product(elementCount(matmul->output()->shape), matmul->inputs[0]->shape.w, 1);
    return 0;
}
