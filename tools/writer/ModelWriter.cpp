#include "writer/ModelWriter.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "writer/RecordWriter.h"
#include "writer/modelFile.h"
#include "writer/outputShapes.h"

using nolk::TensorX;

// What the writer hands out as a TensorX, which is opaque.
struct ModelWriter::WrittenTensor {
    nolk::TensorShape shape;
    int id;
};

void ModelWriter::TensorDeleter::operator()(WrittenTensor* tensor) const { delete tensor; }

namespace {

int checkedAxis(const RecordWriter& record, int axis) {
    if (axis < -4 || axis > 3) record.refuse("axis must be -4 to 3, is " + std::to_string(axis));
    return axis < 0 ? axis + 4 : axis;
}

// Floats of one sample.
std::int64_t sampleSize(const RecordWriter& record, const nolk::TensorShape& shape) {
    if (shape.c < 0 || shape.h < 0 || shape.w < 0) record.refuse("extents must not be negative");
    const std::int64_t plane = std::int64_t{shape.h} * shape.w;
    if (plane > INT_MAX || plane * shape.c > INT_MAX) record.refuse("more than 2^31 - 1 floats");
    return plane * shape.c;
}

void checkSamplesAreEqual(const RecordWriter& record, const nolk::Tensor& tensor, std::int64_t size) {
    for (std::int64_t n = 1; n < tensor.shape.n && tensor.data && size > 0; ++n)
        if (std::memcmp(tensor.data, tensor.data + n * size, static_cast<std::size_t>(size) * sizeof(float)) != 0)
            record.refuse("all samples of a constant must be equal, sample " + std::to_string(n) + " is not");
}

}  // namespace

ModelWriter::ModelWriter(ModelFileOptions options) : options_(std::move(options)) { checkOptions(options_); }

int ModelWriter::idOf(TensorX* x) const { return reinterpret_cast<const WrittenTensor*>(x)->id; }

nolk::TensorShape ModelWriter::shapeOf(TensorX* x) {
    return x ? reinterpret_cast<const WrittenTensor*>(x)->shape : nolk::TensorShape{0, 0, 0, 0, 0};
}

RecordWriter ModelWriter::record(OpCode opCode, const char* operation) const {
    return RecordWriter(options_, opCode, operation);
}

// A record that begins with the ids of x and of the result, as most do.
RecordWriter ModelWriter::unaryRecord(OpCode opCode, const char* operation, TensorX* x) const {
    RecordWriter r = record(opCode, operation);
    r.id(idOf(x));
    r.id(static_cast<int>(tensors_.size()));
    return r;
}

void ModelWriter::checkBatch(const RecordWriter& record, int n) const {
    if (n < 1) record.refuse("n must be at least 1, is " + std::to_string(n));
    if (recordCount_ > 0 && n != batch_)
        record.refuse("n must be the batch of the shapes before, " + std::to_string(batch_) + ", is " +
                      std::to_string(n));
}

void ModelWriter::appendRecord(const RecordWriter& record) {
    if (!file_.empty()) throw std::logic_error("build was called: the file is written");
    if (recordCount_ == INT16_MAX) record.refuse("a file holds at most 32767 records");
    records_.insert(records_.end(), record.bytes().begin(), record.bytes().end());
    ++recordCount_;
}

TensorX* ModelWriter::append(const RecordWriter& record, nolk::TensorShape result) {
    std::unique_ptr<WrittenTensor, TensorDeleter> tensor(new WrittenTensor{result, static_cast<int>(tensors_.size())});
    appendRecord(record);
    tensors_.push_back(std::move(tensor));
    return reinterpret_cast<TensorX*>(tensors_.back().get());
}

TensorX* ModelWriter::unary(OpCode opCode, const char* operation, TensorX* x) {
    if (!x) return nullptr;
    return append(unaryRecord(opCode, operation, x), shapeOf(x));
}

TensorX* ModelWriter::binary(OpCode opCode, const char* operation, TensorX* a, TensorX* b) {
    if (!a || !b) return nullptr;
    RecordWriter r = record(opCode, operation);
    r.id(idOf(a));
    r.id(idOf(b));
    r.id(static_cast<int>(tensors_.size()));
    return append(r, opCode == OpCode::matMul ? outputShape::matMultiplied(shapeOf(a), shapeOf(b)) : shapeOf(a));
}

TensorX* ModelWriter::withTwoFloats(OpCode opCode, const char* operation, TensorX* x, float first, float second) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(opCode, operation, x);
    r.f32(first);
    r.f32(second);
    return append(r, shapeOf(x));
}

// An input's id stands behind its shape, a constant's before.
TensorX* ModelWriter::input(nolk::TensorShape shape) {
    RecordWriter r = record(OpCode::input, "input");
    checkBatch(r, shape.n);
    r.shape(shape);
    r.id(static_cast<int>(tensors_.size()));
    TensorX* const x = append(r, shape);
    batch_ = shape.n;
    return x;
}

TensorX* ModelWriter::constTensor(nolk::Tensor* tensor) {
    if (!tensor) return nullptr;
    RecordWriter r = record(OpCode::constTensor, "constTensor");
    checkBatch(r, tensor->shape.n);
    const std::int64_t size = sampleSize(r, tensor->shape);
    checkSamplesAreEqual(r, *tensor, size);
    r.id(static_cast<int>(tensors_.size()));
    r.shape(tensor->shape);
    r.floats(tensor->data, {static_cast<int>(size)}, "data");
    TensorX* const x = append(r, tensor->shape);
    batch_ = tensor->shape.n;
    return x;
}

TensorX* ModelWriter::convolve(TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                               nolk::Weights weights) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::convolve, "convolve", x);
    r.padding(padding);
    r.dimsHW(stride, "stride");
    r.dimsHW(dilation, "dilation");
    r.convolutionWeights(weights);
    return append(r, outputShape::convolved(shapeOf(x), padding, stride, dilation, weights));
}

TensorX* ModelWriter::deConvolve(TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                                 nolk::Weights weights) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::deConvolve, "deConvolve", x);
    r.padding(padding);
    r.dimsHW(stride, "stride");
    r.dimsHW(dilation, "dilation");
    r.convolutionWeights(weights);
    return append(r, outputShape::deConvolved(shapeOf(x), padding, stride, dilation, weights));
}

TensorX* ModelWriter::pad(TensorX* x, nolk::Padding padding) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::pad, "pad", x);
    r.padding(padding);
    return append(r, outputShape::padded(shapeOf(x), padding));
}

TensorX* ModelWriter::transpose(TensorX* x, nolk::Perm perm) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::transpose, "transpose", x);
    for (const int axis : perm.axes)
        if (axis < 0 || axis > 3) r.refuse("axes must be 0 to 3, one is " + std::to_string(axis));
    r.perm(perm);
    return append(r, outputShape::transposed(shapeOf(x), perm));
}

TensorX* ModelWriter::slice(TensorX* x, nolk::SlicePos pos) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::slice, "slice", x);
    const int axis = checkedAxis(r, pos.axis);
    r.slicePos(pos);
    return append(r, outputShape::sliced(shapeOf(x), axis, pos));
}

TensorX* ModelWriter::fullConnect(TensorX* x, nolk::Weights weights) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::fullConnect, "fullConnect", x);
    r.fullConnectWeights(weights);
    return append(r, outputShape::fullyConnected(shapeOf(x), weights));
}

TensorX* ModelWriter::batchNormalize(TensorX* x, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean,
                                     nolk::Vector variance, float epsilon) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::batchNormalize, "batchNormalize", x);
    r.vector(scale, "scale");
    r.vector(bias, "bias");
    r.vector(mean, "mean");
    r.vector(variance, "variance");
    r.f32(epsilon);
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::pool(OpCode opCode, const char* operation, TensorX* x, nolk::DimsHW kernel, nolk::Padding padding,
                           nolk::DimsHW stride) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(opCode, operation, x);
    r.dimsHW(kernel, "kernel");
    r.padding(padding);
    r.dimsHW(stride, "stride");
    return append(r, outputShape::pooled(shapeOf(x), kernel, padding, stride));
}

TensorX* ModelWriter::maxPool(TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    return pool(OpCode::maxPool, "maxPool", x, kernel, padding, stride);
}

TensorX* ModelWriter::avgPool(TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    return pool(OpCode::avgPool, "avgPool", x, kernel, padding, stride);
}

TensorX* ModelWriter::relu(TensorX* x) { return unary(OpCode::relu, "relu", x); }

// A negative axis, which softmax does not know either, fits no file.
TensorX* ModelWriter::softmax(TensorX* x, nolk::Axis axis) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::softmax, "softmax", x);
    r.enum8(axis, "axis");
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::concat(TensorX** inputs, int count, nolk::Axis axis) {
    RecordWriter r = record(OpCode::concat, "concat");
    if (count < 1 || !inputs) r.refuse("needs an input");
    r.u8(count, "number of inputs");
    std::vector<nolk::TensorShape> shapes;
    for (int i = 0; i < count; ++i) {
        if (!inputs[i]) return nullptr;
        r.id(idOf(inputs[i]));
        shapes.push_back(shapeOf(inputs[i]));
    }
    r.id(static_cast<int>(tensors_.size()));
    const int checked = checkedAxis(r, static_cast<int>(axis));
    r.u8(checked, "axis");
    return append(r, outputShape::concatenated(shapes, checked));
}

TensorX* ModelWriter::add(TensorX* a, TensorX* b) { return binary(OpCode::add, "add", a, b); }

TensorX* ModelWriter::sub(TensorX* a, TensorX* b) { return binary(OpCode::sub, "sub", a, b); }

TensorX* ModelWriter::sigmoid(TensorX* x) { return unary(OpCode::sigmoid, "sigmoid", x); }

TensorX* ModelWriter::reshape(TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::reshape, "reshape", x);
    checkBatch(r, shape.n);
    r.shape(shape);
    r.enum8(layout, "layout");
    return append(r, shape);
}

TensorX* ModelWriter::multiply(TensorX* a, TensorX* b) { return binary(OpCode::multiply, "multiply", a, b); }

TensorX* ModelWriter::exp(TensorX* x) { return unary(OpCode::exp, "exp", x); }

TensorX* ModelWriter::divide(TensorX* a, TensorX* b) { return binary(OpCode::divide, "divide", a, b); }

TensorX* ModelWriter::reduce(TensorX* x, nolk::TensorShape shape, nolk::BasicOp op) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::reduce, "reduce", x);
    checkBatch(r, shape.n);
    r.shape(shape);
    r.enum8(op, "operator");
    return append(r, shape);
}

TensorX* ModelWriter::l2normalize(TensorX* x) { return unary(OpCode::l2normalize, "l2normalize", x); }

TensorX* ModelWriter::clip(TensorX* x, float min, float max) {
    return withTwoFloats(OpCode::clip, "clip", x, min, max);
}

TensorX* ModelWriter::lstm(TensorX* x, nolk::LstmWeights weights) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::lstm, "lstm", x);
    r.lstmWeights(weights);
    return append(r, outputShape::lstmOutput(shapeOf(x), weights));
}

TensorX* ModelWriter::hardSigmoid(TensorX* x, float alpha, float beta) {
    return withTwoFloats(OpCode::hardSigmoid, "hardSigmoid", x, alpha, beta);
}

TensorX* ModelWriter::max(TensorX* a, TensorX* b) { return binary(OpCode::max, "max", a, b); }

TensorX* ModelWriter::instanceNormalization(TensorX* x, float epsilon) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::instanceNormalize, "instanceNormalization", x);
    r.f32(epsilon);
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::instanceNormalization(TensorX* x, nolk::Vector scale, nolk::Vector bias, float epsilon) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::instanceNormalizeScaled, "instanceNormalization", x);
    r.vector(scale, "scale");
    r.vector(bias, "bias");
    r.f32(epsilon);
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::resize(TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                             nolk::ResizeTransMode transMode) {
    if (!x) return nullptr;
    const bool aligned = transMode == nolk::ResizeTransMode::alignCorners;
    RecordWriter r = unaryRecord(aligned ? OpCode::resizeAligned : OpCode::resize, "resize", x);
    checkBatch(r, shape.n);
    r.shape(shape);
    r.enum8(mode, "mode");
    if (!aligned) r.enum8(transMode, "transMode");
    return append(r, shape);
}

TensorX* ModelWriter::abs(TensorX* x) { return unary(OpCode::abs, "abs", x); }

TensorX* ModelWriter::leakyRelu(TensorX* x, float alpha) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::leakyRelu, "leakyRelu", x);
    r.f32(alpha);
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::tanh(TensorX* x) { return unary(OpCode::tanh, "tanh", x); }

TensorX* ModelWriter::prelu(TensorX* x, float* slopes, int count) {
    if (!x) return nullptr;
    RecordWriter r = unaryRecord(OpCode::prelu, "prelu", x);
    r.vector({count, slopes}, "slopes");
    return append(r, shapeOf(x));
}

TensorX* ModelWriter::matMul(TensorX* a, TensorX* b) { return binary(OpCode::matMul, "matMul", a, b); }

nolk::Runner* ModelWriter::build(TensorX** outputs, int count) {
    if (!file_.empty()) throw std::logic_error("build: a builder builds once");
    if (count < 0 || (count > 0 && !outputs)) throw std::invalid_argument("build: no array of outputs");
    for (int i = 0; i < count; ++i)
        if (!outputs[i]) throw std::invalid_argument("build: output " + std::to_string(i) + " is null");
    if (count > INT16_MAX - recordCount_) throw std::out_of_range("build: a file holds at most 32767 records");
    const auto recordsBefore = records_.size();
    const auto countBefore = recordCount_;
    try {
        for (int i = 0; i < count; ++i) {
            RecordWriter r = record(OpCode::output, "output");
            r.id(idOf(outputs[i]));
            appendRecord(r);
        }
        file_ = modelFile(options_, recordCount_, records_);
    } catch (...) {
        records_.resize(recordsBefore);
        recordCount_ = countBefore;
        throw;
    }
    return nullptr;
}
