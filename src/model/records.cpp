#include "model/records.h"

#include <iterator>
#include <vector>

#include "model/RecordReader.h"

namespace {

using nolk::RunnerBuilder;
using nolk::TensorX;
using Id = std::int16_t;

// The fields of every record stand here in the order of the file: one statement, or one list, after the other. All of
// them are read before tensors are looked up and the call is made.

// shape, out: here alone the id stands behind the shape.
void input(RecordReader& f) {
    const nolk::TensorShape shape = f.shape();
    const Id out = f.id();
    f.store(out, f.builder().input(shape));
}

void constTensor(RecordReader& f) {
    const Id out = f.id();
    nolk::Tensor tensor;
    tensor.shape = f.shape();
    tensor.data = f.repeatedSample(tensor.shape);
    f.store(out, f.builder().constTensor(&tensor));
}

void output(RecordReader& f) {
    const Id id = f.id();
    f.addOutput(f.tensor(id));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*)>
void unary(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    f.store(out, (f.builder().*op)(f.tensor(in)));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*, TensorX*)>
void binary(RecordReader& f) {
    const Id a = f.id(), b = f.id(), out = f.id();
    TensorX* const first = f.tensor(a);
    TensorX* const second = f.tensor(b);
    f.store(out, (f.builder().*op)(first, second));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*, float)>
void withFloat(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const float value = f.f32();
    f.store(out, (f.builder().*op)(f.tensor(in), value));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*, float, float)>
void withTwoFloats(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const float first = f.f32(), second = f.f32();
    f.store(out, (f.builder().*op)(f.tensor(in), first, second));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*, nolk::Padding, nolk::DimsHW, nolk::DimsHW, nolk::Weights)>
void convolution(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Padding padding = f.padding();
    const nolk::DimsHW stride = f.dimsHW(), dilation = f.dimsHW();
    const nolk::Weights weights = f.convolutionWeights();
    f.store(out, (f.builder().*op)(f.tensor(in), padding, stride, dilation, weights));
}

template <TensorX* (RunnerBuilder::*op)(TensorX*, nolk::DimsHW, nolk::Padding, nolk::DimsHW)>
void pooling(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::DimsHW kernel = f.dimsHW();
    const nolk::Padding padding = f.padding();
    const nolk::DimsHW stride = f.dimsHW();
    f.store(out, (f.builder().*op)(f.tensor(in), kernel, padding, stride));
}

void pad(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Padding padding = f.padding();
    f.store(out, f.builder().pad(f.tensor(in), padding));
}

void transpose(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Perm perm = f.perm();
    f.store(out, f.builder().transpose(f.tensor(in), perm));
}

void slice(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::SlicePos pos = f.slicePos();
    f.store(out, f.builder().slice(f.tensor(in), pos));
}

void fullConnect(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Weights weights = f.fullConnectWeights();
    f.store(out, f.builder().fullConnect(f.tensor(in), weights));
}

void batchNormalize(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Vector scale = f.vector(), bias = f.vector(), mean = f.vector(), variance = f.vector();
    const float epsilon = f.f32();
    f.store(out, f.builder().batchNormalize(f.tensor(in), scale, bias, mean, variance, epsilon));
}

void instanceNormalizeScaled(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Vector scale = f.vector(), bias = f.vector();
    const float epsilon = f.f32();
    f.store(out, f.builder().instanceNormalization(f.tensor(in), scale, bias, epsilon));
}

void softmax(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const auto axis = f.enum8<nolk::Axis>();
    f.store(out, f.builder().softmax(f.tensor(in), axis));
}

// The array is null when there are no inputs.
void concat(RecordReader& f) {
    std::vector<TensorX*> inputs;
    const int count = f.u8();
    for (int i = 0; i < count; ++i) inputs.push_back(f.tensor(f.id()));
    const Id out = f.id();
    const auto axis = f.enum8<nolk::Axis>();
    f.store(out, f.builder().concat(count > 0 ? inputs.data() : nullptr, count, axis));
}

void reshape(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::TensorShape shape = f.shape();
    const auto layout = f.enum8<nolk::TensorLayout>();
    f.store(out, f.builder().reshape(f.tensor(in), shape, layout));
}

void reduce(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::TensorShape shape = f.shape();
    const auto op = f.enum8<nolk::BasicOp>();
    f.store(out, f.builder().reduce(f.tensor(in), shape, op));
}

// The older record has no way of mapping coordinates: it aligns corners.
void resizeAligned(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::TensorShape shape = f.shape();
    const auto mode = f.enum8<nolk::ResizeMode>();
    f.store(out, f.builder().resize(f.tensor(in), shape, mode, nolk::ResizeTransMode::alignCorners));
}

void resize(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::TensorShape shape = f.shape();
    const auto mode = f.enum8<nolk::ResizeMode>();
    const auto transMode = f.enum8<nolk::ResizeTransMode>();
    f.store(out, f.builder().resize(f.tensor(in), shape, mode, transMode));
}

void lstm(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::LstmWeights weights = f.lstmWeights();
    f.store(out, f.builder().lstm(f.tensor(in), weights));
}

void prelu(RecordReader& f) {
    const Id in = f.id(), out = f.id();
    const nolk::Vector slopes = f.vector();
    f.store(out, f.builder().prelu(f.tensor(in), slopes.data, slopes.count));
}

// By op code.
constexpr Record kRecords[] = {
    input,                                             // 0
    constTensor,                                       // 1
    convolution<&RunnerBuilder::convolve>,             // 2
    pad,                                               // 3
    transpose,                                         // 4
    slice,                                             // 5
    fullConnect,                                       // 6
    batchNormalize,                                    // 7
    pooling<&RunnerBuilder::maxPool>,                  // 8
    pooling<&RunnerBuilder::avgPool>,                  // 9
    unary<&RunnerBuilder::relu>,                       // 10
    softmax,                                           // 11
    concat,                                            // 12
    binary<&RunnerBuilder::add>,                       // 13
    binary<&RunnerBuilder::sub>,                       // 14
    unary<&RunnerBuilder::sigmoid>,                    // 15
    reshape,                                           // 16
    binary<&RunnerBuilder::multiply>,                  // 17
    unary<&RunnerBuilder::exp>,                        // 18
    binary<&RunnerBuilder::divide>,                    // 19
    reduce,                                            // 20
    unary<&RunnerBuilder::l2normalize>,                // 21
    output,                                            // 22
    withTwoFloats<&RunnerBuilder::clip>,               // 23
    lstm,                                              // 24
    withTwoFloats<&RunnerBuilder::hardSigmoid>,        // 25
    binary<&RunnerBuilder::max>,                       // 26
    withFloat<&RunnerBuilder::instanceNormalization>,  // 27
    resizeAligned,                                     // 28
    unary<&RunnerBuilder::abs>,                        // 29
    withFloat<&RunnerBuilder::leakyRelu>,              // 30
    unary<&RunnerBuilder::tanh>,                       // 31
    convolution<&RunnerBuilder::deConvolve>,           // 32
    resize,                                            // 33
    instanceNormalizeScaled,                           // 34
    prelu,                                             // 35
    binary<&RunnerBuilder::matMul>,                    // 36
};

}  // namespace

Record recordOf(int opCode) {
    return opCode >= 0 && opCode < static_cast<int>(std::size(kRecords)) ? kRecords[opCode] : nullptr;
}
