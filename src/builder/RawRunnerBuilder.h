// The built-in implementation of nolk::RunnerBuilder, "NolkRaw": each operation makes its factory.
// A plug-in may derive from it and override the operations that it implements itself.
// Settings: num_threads and gemm_thresh, for the convolutions' matrix products.
#pragma once

#include "builder/BaseRunnerBuilder.h"

class RawRunnerBuilder : public BaseRunnerBuilder {
public:
    // cfg: comma-separated key=value settings, or null. Throws what intSetting throws.
    explicit RawRunnerBuilder(const char* cfg);

    nolk::TensorX* convolve(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                            nolk::Weights weights) override;
    nolk::TensorX* pad(nolk::TensorX* x, nolk::Padding padding) override;
    nolk::TensorX* transpose(nolk::TensorX* x, nolk::Perm perm) override;
    nolk::TensorX* slice(nolk::TensorX* x, nolk::SlicePos pos) override;
    nolk::TensorX* fullConnect(nolk::TensorX* x, nolk::Weights weights) override;
    nolk::TensorX* batchNormalize(nolk::TensorX* x, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean,
                                  nolk::Vector variance, float epsilon) override;
    nolk::TensorX* maxPool(nolk::TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) override;
    nolk::TensorX* avgPool(nolk::TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) override;
    nolk::TensorX* relu(nolk::TensorX* x) override;
    nolk::TensorX* softmax(nolk::TensorX* x, nolk::Axis axis) override;
    nolk::TensorX* concat(nolk::TensorX** inputs, int count, nolk::Axis axis) override;
    nolk::TensorX* add(nolk::TensorX* a, nolk::TensorX* b) override;
    nolk::TensorX* sub(nolk::TensorX* a, nolk::TensorX* b) override;
    nolk::TensorX* sigmoid(nolk::TensorX* x) override;
    nolk::TensorX* reshape(nolk::TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout) override;
    nolk::TensorX* multiply(nolk::TensorX* a, nolk::TensorX* b) override;
    nolk::TensorX* exp(nolk::TensorX* x) override;
    nolk::TensorX* divide(nolk::TensorX* a, nolk::TensorX* b) override;
    nolk::TensorX* reduce(nolk::TensorX* x, nolk::TensorShape shape, nolk::BasicOp op) override;
    nolk::TensorX* l2normalize(nolk::TensorX* x) override;
    nolk::TensorX* clip(nolk::TensorX* x, float min, float max) override;
    nolk::TensorX* lstm(nolk::TensorX* x, nolk::LstmWeights weights) override;
    nolk::TensorX* hardSigmoid(nolk::TensorX* x, float alpha, float beta) override;
    nolk::TensorX* max(nolk::TensorX* a, nolk::TensorX* b) override;
    nolk::TensorX* instanceNormalization(nolk::TensorX* x, float epsilon) override;
    nolk::TensorX* instanceNormalization(nolk::TensorX* x, nolk::Vector scale, nolk::Vector bias,
                                         float epsilon) override;
    nolk::TensorX* resize(nolk::TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                          nolk::ResizeTransMode transMode) override;
    nolk::TensorX* abs(nolk::TensorX* x) override;
    nolk::TensorX* leakyRelu(nolk::TensorX* x, float alpha) override;
    nolk::TensorX* tanh(nolk::TensorX* x) override;
    nolk::TensorX* deConvolve(nolk::TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                              nolk::Weights weights) override;
    nolk::TensorX* prelu(nolk::TensorX* x, float* slopes, int count) override;
    nolk::TensorX* matMul(nolk::TensorX* a, nolk::TensorX* b) override;

private:
    template <typename Factory, typename... Args>
    nolk::TensorX* record(nolk::TensorX* x, Args... args);
    nolk::TensorX* eltwise(nolk::TensorX* a, nolk::TensorX* b, EltwiseType type);
    nolk::TensorX* activation(nolk::TensorX* x, ActivateType type);

    int numThreads_;
    int gemmThresh_;
};
