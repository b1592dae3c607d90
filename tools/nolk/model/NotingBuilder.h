// A builder that builds nothing but takes notes: one NotedOperation for each call, inputs and constants included.
//   NotingBuilder notes;  reader->readFromFile(&notes, 1, "digits.cm");  notes.operations()[1].multiplyAdds
// It bears any call: null tensors, extents that cannot be, arrays that are null. Arrays are only read, and only during
// the call. Tensors are its own and mean nothing to another builder.
#pragma once

#include <nolk.h>

#include <memory>
#include <vector>

#include "nolk/model/NotedOperation.h"

class NotingBuilder final : public nolk::RunnerBuilder {
public:
    NotingBuilder();
    ~NotingBuilder();
    NotingBuilder(const NotingBuilder&) = delete;
    NotingBuilder& operator=(const NotingBuilder&) = delete;

    const std::vector<NotedOperation>& operations() const { return operations_; }

    // The place of what made x among the operations; -1 for null.
    int placeOf(const nolk::TensorX* x) const;

    nolk::TensorX* input(nolk::TensorShape shape) override;
    nolk::TensorX* constTensor(nolk::Tensor* tensor) override;
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
    nolk::TensorShape shapeOf(nolk::TensorX* x) override;

    // Always null: there is no runner.
    nolk::Runner* build(nolk::TensorX** outputs, int count) override;

    // For a builder made with new.
    void destroy() override { delete this; }

private:
    struct Tensor;

    NotedOperation begin(const char* name, const std::vector<nolk::TensorX*>& inputs) const;
    nolk::TensorX* finish(NotedOperation operation, nolk::TensorShape output);
    nolk::TensorX* unary(const char* name, nolk::TensorX* x);
    nolk::TensorX* eltwise(const char* name, nolk::TensorX* a, nolk::TensorX* b);
    nolk::TensorX* pool(const char* name, nolk::TensorX* x, nolk::DimsHW kernel, nolk::Padding padding,
                        nolk::DimsHW stride);

    std::vector<NotedOperation> operations_;
    std::vector<std::unique_ptr<Tensor>> tensors_;
};
