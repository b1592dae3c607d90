#include "Recording.h"

#include <stdexcept>

#include "arguments.h"
#include "model/operations.h"

std::vector<int> Tensor::shape() const {
    const nolk::TensorShape s = recording->shapeOf(x);
    if (s.dims == 1 && s.h == 1 && s.w == 1) return {s.c};
    return {s.c, s.h, s.w};
}

Tensor Recording::call(int code, py::handle inputs, const py::sequence& arguments) {
    const Operation* const operation = findOperation(code);
    if (!operation || !operation->call || operation->fieldCount != arguments.size())
        throw py::type_error("no such operation");
    if (isFinished()) throw nolk::ModelError("the network is built: a builder builds once");
    Call call{*operation, own(operation->name, inputs), {}};
    if (operation->inputCount != kListOfInputs && operation->inputCount != static_cast<int>(call.inputs.size()))
        throw py::type_error("no such operation");
    for (std::size_t i = 0; i < operation->fieldCount; ++i)
        call.arguments.push_back(argumentOf(*operation, operation->fields[i], arguments[i]));
    try {
        return {shared_from_this(), operation->call(*writer_, call)};
    } catch (const std::out_of_range& e) {
        throw py::value_error(e.what());
    }
}

void Recording::finish(py::handle outputs) {
    if (isFinished()) throw nolk::ModelError("the network is built: a builder builds once");
    std::vector<nolk::TensorX*> x = own("outputs", outputs);
    if (x.empty()) throw py::value_error("a network needs an output");
    try {
        writer_->build(x.data(), static_cast<int>(x.size()));
    } catch (const std::out_of_range& e) {
        throw nolk::ModelError(e.what());
    }
}

std::vector<unsigned char> Recording::file(const nolk::ModelFileOptions& options) const {
    if (!isFinished()) throw nolk::ModelError("the network is not built yet");
    std::vector<unsigned char> bytes = writer_->bytes();
    try {
        const nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
        const nolk::Owned<nolk::ModelReader> reader(nolk_new_model_reader());
        if (!reader) throw nolk::ModelError("no reader for model files");
        reader->readFromMemory(writer.get(), 1, bytes.data(), static_cast<int>(bytes.size()));
        return writer->bytes();
    } catch (const std::out_of_range& e) {
        throw py::value_error(e.what());
    }
}

std::vector<nolk::TensorX*> Recording::own(const std::string& user, py::handle tensors) const {
    if (!PySequence_Check(tensors.ptr()))
        throw py::type_error(user + ": expected a list of tensors, got " + Py_TYPE(tensors.ptr())->tp_name);
    std::vector<nolk::TensorX*> x;
    const auto items = py::reinterpret_borrow<py::sequence>(tensors);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const py::object item = items[i];
        if (!py::isinstance<Tensor>(item))
            throw py::type_error(user + ": expected a nolk.Tensor, got " + Py_TYPE(item.ptr())->tp_name);
        const auto& tensor = item.cast<const Tensor&>();
        if (tensor.recording.get() != this) throw py::value_error(user + ": the tensor belongs to another builder");
        x.push_back(tensor.x);
    }
    return x;
}
