#include "inspect/ModelWriterImpl.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

#include "inspect/RecordWriter.h"
#include "inspect/container.h"
#include "inspect/entryPoints.h"
#include "inspect/outputShape.h"

namespace {

using Builder = nolk::RunnerBuilder;

constexpr int kOutputCode = 22;

// The call in the form in which it is written. A resize with aligned corners uses the older record, which has no byte
// for the trans mode.
Call inFileForm(const Call& call) {
    if (call.operation.code == kCodeOf<&operation::concat>) {
        const int axis = static_cast<int>(std::get<nolk::Axis>(call.arguments[0]));
        return {call.operation, call.inputs, {static_cast<nolk::Axis>(axis < 0 ? axis + 4 : axis)}};
    }
    if (call.operation.code == kCodeOf<&Builder::resize> &&
        std::get<nolk::ResizeTransMode>(call.arguments[2]) == nolk::ResizeTransMode::alignCorners)
        return {operationOf<&operation::resizeAligned>(), call.inputs, {call.arguments[0], call.arguments[1]}};
    return call;
}

void checkAxis(const RecordWriter& record, int axis) {
    if (axis < -4 || axis > 3) record.refuse("axis must be -4 to 3, is " + std::to_string(axis));
}

void checkAxes(const RecordWriter& record, const Call& call) {
    if (call.operation.code == kCodeOf<&Builder::slice>)
        checkAxis(record, std::get<nolk::SlicePos>(call.arguments[0]).axis);
    if (call.operation.code == kCodeOf<&operation::concat>)
        checkAxis(record, static_cast<int>(std::get<nolk::Axis>(call.arguments[0])));
    if (call.operation.code == kCodeOf<&Builder::transpose>)
        for (const int axis : std::get<nolk::Perm>(call.arguments[0]).axes)
            if (axis < 0 || axis > 3) record.refuse("axes must be 0 to 3, one is " + std::to_string(axis));
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

nolk::ModelWriter* createModelWriter(const nolk::ModelFileOptions& options) { return new ModelWriterImpl(options); }

ModelWriterImpl::ModelWriterImpl(nolk::ModelFileOptions options) : options_(std::move(options)) {
    checkOptions(options_);
}

int ModelWriterImpl::idOf(TensorX* x) const { return reinterpret_cast<const WrittenTensor*>(x)->id; }

nolk::TensorShape ModelWriterImpl::shapeOf(TensorX* x) {
    return x ? reinterpret_cast<const WrittenTensor*>(x)->shape : nolk::TensorShape{0, 0, 0, 0, 0};
}

nolk::TensorX* ModelWriterImpl::record(const Call& given) {
    RecordWriter writer(options_, given.operation);
    if (given.operation.inputCount == kListOfInputs && given.inputs.empty()) writer.refuse("needs an input");
    if (std::find(given.inputs.begin(), given.inputs.end(), nullptr) != given.inputs.end()) return nullptr;
    checkAxes(writer, given);
    const Call call = inFileForm(given);
    writer = RecordWriter(options_, call.operation);
    writeFields(writer, call);

    std::vector<nolk::TensorShape> shapes;
    for (TensorX* x : call.inputs) shapes.push_back(shapeOf(x));
    auto tensor =
        std::make_unique<WrittenTensor>(WrittenTensor{outputShape(call, shapes), static_cast<int>(tensors_.size())});
    if (call.inputs.empty()) checkBatch(writer, tensor->shape.n);
    appendRecord(writer);
    if (call.inputs.empty()) batch_ = tensor->shape.n;
    tensors_.push_back(std::move(tensor));
    return reinterpret_cast<TensorX*>(tensors_.back().get());
}

// The id comes before the fields, except that of an input, which follows its shape.
void ModelWriterImpl::writeFields(RecordWriter& writer, const Call& call) const {
    const bool idIsLast = call.operation.code == kCodeOf<&Builder::input>;
    const int id = static_cast<int>(tensors_.size());
    if (call.operation.inputCount == kListOfInputs)
        writer.u8(static_cast<std::int64_t>(call.inputs.size()), "number of inputs");
    for (TensorX* x : call.inputs) writer.id(idOf(x));
    if (!idIsLast) writer.id(id);
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const Argument& argument = call.arguments[i];
        if (const auto* shape = std::get_if<nolk::TensorShape>(&argument)) checkBatch(writer, shape->n);
        if (const auto* tensor = std::get_if<nolk::Tensor>(&argument))
            writeConstant(writer, *tensor);
        else
            writer.field(call.operation.fields[i].name, argument);
    }
    if (idIsLast) writer.id(id);
}

void ModelWriterImpl::writeConstant(RecordWriter& writer, const nolk::Tensor& tensor) const {
    checkBatch(writer, tensor.shape.n);
    const std::int64_t size = sampleSize(writer, tensor.shape);
    checkSamplesAreEqual(writer, tensor, size);
    writer.shape(tensor.shape);
    writer.floats(tensor.data, {static_cast<int>(size)}, "data");
}

void ModelWriterImpl::checkBatch(const RecordWriter& writer, int n) const {
    if (n < 1) writer.refuse("n must be at least 1, is " + std::to_string(n));
    if (recordCount_ > 0 && n != batch_)
        writer.refuse("n must be the batch of the shapes before, " + std::to_string(batch_) + ", is " +
                      std::to_string(n));
}

void ModelWriterImpl::appendRecord(const RecordWriter& writer) {
    if (!file_.empty()) throw std::logic_error("build was called: the file is written");
    if (recordCount_ == INT16_MAX) writer.refuse("a file holds at most 32767 records");
    records_.insert(records_.end(), writer.bytes().begin(), writer.bytes().end());
    ++recordCount_;
}

nolk::Runner* ModelWriterImpl::build(nolk::TensorX** outputs, int count) {
    if (!file_.empty()) throw std::logic_error("build: a builder builds once");
    if (count < 0 || (count > 0 && !outputs)) throw std::invalid_argument("build: no array of outputs");
    for (int i = 0; i < count; ++i)
        if (!outputs[i]) throw std::invalid_argument("build: output " + std::to_string(i) + " is null");
    if (count > INT16_MAX - recordCount_) throw std::out_of_range("build: a file holds at most 32767 records");
    const auto recordsBefore = records_.size();
    const auto countBefore = recordCount_;
    try {
        for (int i = 0; i < count; ++i) {
            RecordWriter writer(options_, *findOperation(kOutputCode));
            writer.id(idOf(outputs[i]));
            appendRecord(writer);
        }
        file_ = modelFile(options_, recordCount_, records_);
        std::vector<unsigned char>().swap(records_);  // large networks should not stay in memory twice
    } catch (...) {
        records_.resize(recordsBefore);
        recordCount_ = countBefore;
        throw;
    }
    return nullptr;
}
