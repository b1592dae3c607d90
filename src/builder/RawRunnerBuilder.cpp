#include "builder/RawRunnerBuilder.h"

#include <algorithm>
#include <utility>

#include "builder/utils.h"
#include "layers/RawActLayerFactory.h"
#include "layers/RawBatchNormalizationLayerFactory.h"
#include "layers/RawConcatLayerFactory.h"
#include "layers/RawConvolutionLayerFactory.h"
#include "layers/RawDeConvolutionLayerFactory.h"
#include "layers/RawEltwiseLayerFactory.h"
#include "layers/RawFullConnectionLayerFactory.h"
#include "layers/RawInstanceNormalizationLayerFactory.h"
#include "layers/RawL2NormalizationLayerFactory.h"
#include "layers/RawLstmLayerFactory.h"
#include "layers/RawMatmulLayerFactory.h"
#include "layers/RawPaddingLayerFactory.h"
#include "layers/RawPoolingLayerFactory.h"
#include "layers/RawReductionLayerFactory.h"
#include "layers/RawReshapeLayerFactory.h"
#include "layers/RawResizeLayerFactory.h"
#include "layers/RawSliceLayerFactory.h"
#include "layers/RawSoftMaxLayerFactory.h"
#include "layers/RawTransposeLayerFactory.h"

RawRunnerBuilder::RawRunnerBuilder(const char* cfg) {
    const auto settings = cfgToMap(cfg);
    numThreads_ = intSetting(settings, "num_threads", 1);
    gemmThresh_ = intSetting(settings, "gemm_thresh", 2000000);
}

// Returns null for a null input (an unknown id of a model file, or the result of a failed operation) and for a tensor
// of another builder.
template <typename Factory, typename... Args>
nolk::TensorX* RawRunnerBuilder::record(nolk::TensorX* x, Args... args) {
    if (!areOwn({x})) return nullptr;
    return addLayer({x}, [&] { return std::make_unique<Factory>(x, args...); });
}

nolk::TensorX* RawRunnerBuilder::eltwise(nolk::TensorX* a, nolk::TensorX* b, EltwiseType type) {
    if (!areOwn({a, b})) return nullptr;
    return addLayer({a, b}, [&] { return std::make_unique<RawEltwiseLayerFactory>(a, b, type); });
}

// 0.2 and 0.5 are the defaults of the hard sigmoid; the other activations ignore them.
nolk::TensorX* RawRunnerBuilder::activation(nolk::TensorX* x, ActivateType type) {
    return record<RawActLayerFactory>(x, type, 0.0f, 0.0f, 0.2f, 0.5f, nullptr, 0);
}

nolk::TensorX* RawRunnerBuilder::convolve(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride,
                                          nolk::DimsHW dilation, nolk::Weights weights) {
    return record<RawConvolutionLayerFactory>(x, padding, stride, dilation, weights, numThreads_, gemmThresh_);
}

nolk::TensorX* RawRunnerBuilder::pad(nolk::TensorX* x, nolk::Padding padding) {
    return record<RawPaddingLayerFactory>(x, padding);
}

nolk::TensorX* RawRunnerBuilder::transpose(nolk::TensorX* x, nolk::Perm perm) {
    return record<RawTransposeLayerFactory>(x, perm);
}

nolk::TensorX* RawRunnerBuilder::slice(nolk::TensorX* x, nolk::SlicePos pos) {
    return record<RawSliceLayerFactory>(x, pos);
}

nolk::TensorX* RawRunnerBuilder::fullConnect(nolk::TensorX* x, nolk::Weights weights) {
    return record<RawFullConnectionLayerFactory>(x, weights);
}

nolk::TensorX* RawRunnerBuilder::batchNormalize(nolk::TensorX* x, nolk::Vector scale, nolk::Vector bias,
                                                nolk::Vector mean, nolk::Vector variance, float epsilon) {
    return record<RawBatchNormalizationLayerFactory>(x, scale, bias, mean, variance, epsilon);
}

nolk::TensorX* RawRunnerBuilder::maxPool(nolk::TensorX* x, nolk::DimsHW kernel, nolk::Padding padding,
                                         nolk::DimsHW stride) {
    return record<RawPoolingLayerFactory>(x, POOL_MAX, kernel, padding, stride);
}

nolk::TensorX* RawRunnerBuilder::avgPool(nolk::TensorX* x, nolk::DimsHW kernel, nolk::Padding padding,
                                         nolk::DimsHW stride) {
    return record<RawPoolingLayerFactory>(x, POOL_AVG, kernel, padding, stride);
}

nolk::TensorX* RawRunnerBuilder::relu(nolk::TensorX* x) { return activation(x, ACT_RELU); }

nolk::TensorX* RawRunnerBuilder::softmax(nolk::TensorX* x, nolk::Axis axis) {
    return record<RawSoftMaxLayerFactory>(x, axis);
}

nolk::TensorX* RawRunnerBuilder::concat(nolk::TensorX** inputs, int count, nolk::Axis axis) {
    std::vector<nolk::TensorX*> tensors;
    if (inputs && count > 0) tensors.assign(inputs, inputs + count);
    if (!areOwn(tensors)) return nullptr;
    return addLayer(tensors, [&] { return std::make_unique<RawConcatLayerFactory>(tensors, axis); });
}

nolk::TensorX* RawRunnerBuilder::add(nolk::TensorX* a, nolk::TensorX* b) { return eltwise(a, b, ELTWISE_ADD); }

nolk::TensorX* RawRunnerBuilder::sub(nolk::TensorX* a, nolk::TensorX* b) { return eltwise(a, b, ELTWISE_SUB); }

nolk::TensorX* RawRunnerBuilder::sigmoid(nolk::TensorX* x) { return activation(x, ACT_SIGMOID); }

nolk::TensorX* RawRunnerBuilder::reshape(nolk::TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout) {
    return record<RawReshapeLayerFactory>(x, shape, layout);
}

nolk::TensorX* RawRunnerBuilder::multiply(nolk::TensorX* a, nolk::TensorX* b) { return eltwise(a, b, ELTWISE_MUL); }

nolk::TensorX* RawRunnerBuilder::exp(nolk::TensorX* x) { return activation(x, ACT_EXP); }

nolk::TensorX* RawRunnerBuilder::divide(nolk::TensorX* a, nolk::TensorX* b) { return eltwise(a, b, ELTWISE_DIV); }

nolk::TensorX* RawRunnerBuilder::reduce(nolk::TensorX* x, nolk::TensorShape shape, nolk::BasicOp op) {
    return record<RawReductionLayerFactory>(x, shape, op);
}

nolk::TensorX* RawRunnerBuilder::l2normalize(nolk::TensorX* x) { return record<RawL2NormalizationLayerFactory>(x); }

nolk::TensorX* RawRunnerBuilder::clip(nolk::TensorX* x, float min, float max) {
    return record<RawActLayerFactory>(x, ACT_CLIP, min, max, 0.2f, 0.5f, nullptr, 0);
}

nolk::TensorX* RawRunnerBuilder::lstm(nolk::TensorX* x, nolk::LstmWeights weights) {
    return record<RawLstmLayerFactory>(x, weights);
}

nolk::TensorX* RawRunnerBuilder::hardSigmoid(nolk::TensorX* x, float alpha, float beta) {
    return record<RawActLayerFactory>(x, ACT_HARD_SIGMOID, 0.0f, 0.0f, alpha, beta, nullptr, 0);
}

nolk::TensorX* RawRunnerBuilder::max(nolk::TensorX* a, nolk::TensorX* b) { return eltwise(a, b, ELTWISE_MAX); }

nolk::TensorX* RawRunnerBuilder::instanceNormalization(nolk::TensorX* x, float epsilon) {
    return record<RawInstanceNormalizationLayerFactory>(x, epsilon);
}

nolk::TensorX* RawRunnerBuilder::instanceNormalization(nolk::TensorX* x, nolk::Vector scale, nolk::Vector bias,
                                                       float epsilon) {
    return record<RawInstanceNormalizationLayerFactory>(x, scale, bias, epsilon);
}

nolk::TensorX* RawRunnerBuilder::resize(nolk::TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                                        nolk::ResizeTransMode transMode) {
    return record<RawResizeLayerFactory>(x, shape, mode, transMode);
}

nolk::TensorX* RawRunnerBuilder::abs(nolk::TensorX* x) { return activation(x, ACT_ABS); }

nolk::TensorX* RawRunnerBuilder::leakyRelu(nolk::TensorX* x, float alpha) {
    return record<RawActLayerFactory>(x, ACT_LEAKY_RELU, 0.0f, 0.0f, alpha, 0.0f, nullptr, 0);
}

nolk::TensorX* RawRunnerBuilder::tanh(nolk::TensorX* x) { return activation(x, ACT_TANH); }

nolk::TensorX* RawRunnerBuilder::deConvolve(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride,
                                            nolk::DimsHW dilation, nolk::Weights weights) {
    return record<RawDeConvolutionLayerFactory>(x, padding, stride, dilation, weights);
}

nolk::TensorX* RawRunnerBuilder::prelu(nolk::TensorX* x, float* slopes, int count) {
    return record<RawActLayerFactory>(x, ACT_PRELU, 0.0f, 0.0f, 0.0f, 0.0f, slopes, count);
}

nolk::TensorX* RawRunnerBuilder::matMul(nolk::TensorX* a, nolk::TensorX* b) {
    if (!areOwn({a, b})) return nullptr;
    return addLayer({a, b}, [&] { return std::make_unique<RawMatmulLayerFactory>(a, b); });
}
