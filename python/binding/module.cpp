// The extension module nolk._nolk: what the package needs of libnolk and libnolk_model. _nolk.pyi has its signatures,
// and the package's Python files document what users see.
#include <nolk_model.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <optional>
#include <string>
#include <tuple>

#include "Network.h"
#include "Recording.h"
#include "Unlocked.h"
#include "arguments.h"
#include "implementations.h"
#include "model/operations.h"
#include "nolk/info/infoReport.h"

namespace {

// The bytes of a model file in any Python object that has them. They can neither move nor be freed meanwhile.
class Bytes {
public:
    explicit Bytes(py::handle object) {
        if (PyObject_GetBuffer(object.ptr(), &view_, PyBUF_SIMPLE) != 0) throw py::error_already_set();
    }
    ~Bytes() { PyBuffer_Release(&view_); }
    Bytes(const Bytes&) = delete;
    Bytes& operator=(const Bytes&) = delete;

    const void* data() const { return view_.buf; }
    std::size_t size() const { return static_cast<std::size_t>(view_.len); }

private:
    Py_buffer view_{};
};

using Limit = std::optional<std::int64_t>;

nolk::ModelLimits limitsOf(Limit memoryBytes, Limit multiplyAdds) {
    return {memoryBytes.value_or(nolk::ModelLimits::kNone), multiplyAdds.value_or(nolk::ModelLimits::kNone)};
}

std::unique_ptr<Network> load(py::handle model, int batch, std::optional<std::string> implementation, bool shared,
                              Limit memoryBytes, Limit multiplyAdds) {
    const Bytes bytes(model);
    const LoadOptions options{batch, std::move(implementation), shared, limitsOf(memoryBytes, multiplyAdds)};
    return std::make_unique<Network>(bytes.data(), bytes.size(), options);
}

// As JSON, whose path is empty.
std::string inspect(py::handle model, int batch, Limit memoryBytes, Limit multiplyAdds) {
    const Bytes bytes(model);
    const Unlocked unlocked;
    const nolk::InspectionOptions options{batch, nolk::InspectionDepth::run, limitsOf(memoryBytes, multiplyAdds)};
    return infoJson("", nolk::inspectModel(bytes.data(), bytes.size(), options));
}

// The findings as (severity, record, operation, offset, text, description), and the remark.
py::tuple check(py::handle model, Limit memoryBytes, Limit multiplyAdds) {
    const Bytes bytes(model);
    nolk::ModelCheck result;
    {
        const Unlocked unlocked;
        result = nolk::checkModel(bytes.data(), bytes.size(), limitsOf(memoryBytes, multiplyAdds));
    }
    py::list findings;
    for (const nolk::ModelFinding& f : result.findings)
        findings.append(py::make_tuple(f.severity == nolk::Severity::error ? "error" : "warning", f.record, f.operation,
                                       f.offset, f.text, describe(f)));
    return py::make_tuple(findings, result.remark);
}

// (name, code, number of inputs or -1 for a list, [(field, kind)]) of all that a builder can record.
py::list operations() {
    py::list all;
    for (const Operation& operation : operation::kTable) {
        if (!operation.call) continue;
        py::list fields;
        for (std::size_t i = 0; i < operation.fieldCount; ++i)
            fields.append(py::make_tuple(operation.fields[i].name, kindName(operation.fields[i])));
        all.append(py::make_tuple(operation.name, operation.code, operation.inputCount, fields));
    }
    return all;
}

py::list listOf(const std::vector<ArrayForm>& forms) {
    py::list list;
    for (const ArrayForm& form : forms)
        list.append(py::make_tuple(form.name, py::tuple(py::cast(form.extents(form.shape.n)))));
    return list;
}

nolk::ModelFileOptions fileOptions(int version, bool lossy, const std::vector<std::pair<int, py::bytes>>& headInfo) {
    nolk::ModelFileOptions options{version, lossy, {}};
    for (const auto& [key, data] : headInfo) {
        const std::string text = data;
        options.headInfo.push_back({key, {text.begin(), text.end()}});
    }
    return options;
}

void define(py::module_& m) {
    py::options options;
    options.disable_function_signatures();

    // pybind11 tries the newest translator first.
    py::register_exception<nolk::ModelError>(m, "Error", PyExc_RuntimeError);
    py::register_exception<nolk::LimitExceeded>(m, "LimitExceeded", m.attr("Error"));

    py::class_<Network>(m, "Network")
        .def(py::init(&load))
        .def("run", &Network::run)
        .def("__call__", &Network::call)
        .def("close", &Network::close)
        .def_property_readonly("is_closed", &Network::isClosed)
        .def_property_readonly("inputs", [](const Network& net) { return listOf(net.inputs()); })
        .def_property_readonly("outputs", [](const Network& net) { return listOf(net.outputs()); })
        .def_property_readonly("batch", &Network::batch)
        .def_property_readonly("shared", &Network::isShared)
        .def_property_readonly("mixes_samples", &Network::mixesSamples)
        .def_property_readonly("implementation", &Network::implementation);

    py::class_<Tensor>(m, "Tensor", "A tensor of a network that a `Builder` records; its operations make them.")
        .def_property_readonly(
            "shape", [](const Tensor& tensor) { return py::tuple(py::cast(tensor.shape())); },
            "Extents of one sample, without the batch: (c, h, w), or (c,) for a matrix.")
        .def("__repr__",
             [](const Tensor& tensor) { return py::str("<nolk.Tensor {}>").format(py::cast(tensor).attr("shape")); });

    py::class_<Recording, std::shared_ptr<Recording>>(m, "Recording")
        .def(py::init<>())
        .def("call", &Recording::call)
        .def("finish", &Recording::finish)
        .def_property_readonly("is_finished", &Recording::isFinished)
        .def("file", [](const Recording& recording, int version, bool lossy,
                        const std::vector<std::pair<int, py::bytes>>& headInfo) {
            const std::vector<unsigned char> bytes = recording.file(fileOptions(version, lossy, headInfo));
            return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        });

    m.def("inspect", &inspect);
    m.def("check", &check);
    m.def("operations", &operations);
    m.def("has_implementation", &hasImplementation);
    m.def("require_implementation", &requireImplementation);
}

}  // namespace

// As PYBIND11_MODULE has it, but for the first check: in another interpreter than the main one, pybind11 and numpy wait
// for ever.
extern "C" PYBIND11_EXPORT PyObject* PyInit__nolk() {
    PYBIND11_CHECK_PYTHON_VERSION
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
        PyErr_SetString(PyExc_ImportError, "nolk works only in the main interpreter of a process");
        return nullptr;
    }
    PYBIND11_ENSURE_INTERNALS_READY
    static py::module_::module_def definition;
    auto module = py::module_::create_extension_module("_nolk", nullptr, &definition);
    try {
        define(module);
        return module.ptr();
    }
    PYBIND11_CATCH_INIT_EXCEPTIONS
}
