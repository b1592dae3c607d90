// A builder that writes a model file instead of building a runner: whatever can drive a builder can be saved.
//   ModelWriter writer;                                  // version 4; the options choose otherwise
//   nolk::TensorX* y = writer.relu(writer.input({1, 3, 8, 8, 3}));
//   writer.build(&y, 1);                                 // returns null: there is no runner
//   std::vector<unsigned char> file = writer.bytes();
// Tensors are the writer's own and mean nothing to another builder. Arrays are copied by the call that brings them.
//
// A file knows one batch item. All shapes that are given (input, constTensor, reshape, reduce, resize) must have the
// same n, which is dropped: reading puts its own batch there. Of a constant one sample is written, so all of its
// samples must be equal.
//
// What has no form in the file makes the call throw std::out_of_range with the operation and the field, and leaves the
// writer as it was. Written otherwise than given, with the same meaning: a convolution's shared weights (repeated for
// each group), a negative axis of concat, a bias of an LSTM with splitBias false (left out, as it is not used).
// resize becomes record 28 for alignCorners and record 33 else; instanceNormalization 27 without vectors, 34 with them.
// In version 4 floats become a table of 256 values and indices where that is exact and smaller, or, with options.lossy,
// where it is smaller.
#pragma once

#include <nolk.h>

#include <memory>
#include <vector>

#include "writer/ModelFileOptions.h"
#include "writer/OpCode.h"

class RecordWriter;

class ModelWriter final : public nolk::RunnerBuilder {
public:
    // Throws std::out_of_range for options that cannot be.
    explicit ModelWriter(ModelFileOptions options = {});

    // The file; empty before build.
    const std::vector<unsigned char>& bytes() const { return file_; }

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

    // Writes the outputs' records and the file, once. Always null, which a nolk::ModelReader that drives the writer
    // returns in turn: bytes() tells whether it got this far. Throws std::invalid_argument for a null output.
    nolk::Runner* build(nolk::TensorX** outputs, int count) override;

    // For a writer made with new.
    void destroy() override { delete this; }

private:
    struct WrittenTensor;
    struct TensorDeleter {
        void operator()(WrittenTensor* tensor) const;
    };

    int idOf(nolk::TensorX* x) const;
    RecordWriter record(OpCode opCode, const char* operation) const;
    RecordWriter unaryRecord(OpCode opCode, const char* operation, nolk::TensorX* x) const;
    void checkBatch(const RecordWriter& record, int n) const;
    nolk::TensorX* append(const RecordWriter& record, nolk::TensorShape result);
    void appendRecord(const RecordWriter& record);

    nolk::TensorX* unary(OpCode opCode, const char* operation, nolk::TensorX* x);
    nolk::TensorX* binary(OpCode opCode, const char* operation, nolk::TensorX* a, nolk::TensorX* b);
    nolk::TensorX* withTwoFloats(OpCode opCode, const char* operation, nolk::TensorX* x, float first, float second);
    nolk::TensorX* pool(OpCode opCode, const char* operation, nolk::TensorX* x, nolk::DimsHW kernel,
                        nolk::Padding padding, nolk::DimsHW stride);

    const ModelFileOptions options_;
    std::vector<std::unique_ptr<WrittenTensor, TensorDeleter>> tensors_;  // a tensor's id is its index
    std::vector<unsigned char> records_;
    std::vector<unsigned char> file_;
    int recordCount_ = 0;
    int batch_ = 0;  // the n of the first shape given; unknown while recordCount_ is 0
};
