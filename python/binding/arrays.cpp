#include "arrays.h"

#include <algorithm>

namespace {

bool isMatrix(const nolk::TensorShape& shape) { return shape.dims == 1 && shape.h == 1 && shape.w == 1; }

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
    return text;
}

// "float32 [n, 1, 28, 28]"
std::string formText(const ArrayForm& form, py::ssize_t n) {
    std::vector<std::string> extents;
    for (const py::ssize_t extent : form.extents(n)) extents.push_back(std::to_string(extent));
    if (n < 0) extents.front() = "n";
    return "float32 [" + joined(extents) + "]";
}

bool hasShape(const py::array& array, const ArrayForm& form, py::ssize_t n) {
    const nolk::TensorShape& s = form.shape;
    const bool sameSample =
        isMatrix(s) ? array.ndim() == 2 && array.shape(1) == s.c
                    : array.ndim() == 4 && array.shape(1) == s.c && array.shape(2) == s.h && array.shape(3) == s.w;
    return sameSample && (n < 0 || array.shape(0) == n);
}

// Arrays of numpy's own class, which nearly all are, have no mask.
bool isMasked(const py::array& array) {
    return Py_TYPE(array.ptr()) != py::detail::npy_api::get().PyArray_Type_ &&
           py::isinstance(array, py::module_::import("numpy.ma").attr("MaskedArray"));
}

}  // namespace

std::vector<py::ssize_t> ArrayForm::extents(py::ssize_t n) const {
    if (isMatrix(shape)) return {n, shape.c};
    return {n, shape.c, shape.h, shape.w};
}

std::size_t ArrayForm::sampleSize() const {
    if (std::min({shape.c, shape.h, shape.w}) < 1) return 0;
    return static_cast<std::size_t>(shape.c) * static_cast<std::size_t>(shape.h) * static_cast<std::size_t>(shape.w);
}

py::array requireFloats(py::handle object, const std::string& name) {
    using Api = py::detail::npy_api;
    if (!py::isinstance<py::array>(object))
        throw py::type_error(name + ": expected a numpy array, got " + Py_TYPE(object.ptr())->tp_name);
    auto array = py::reinterpret_borrow<py::array>(object);
    if (isMasked(array))
        throw py::type_error(name + ": expected an array without a mask, got a masked one; its filled() makes one");
    if (!py::isinstance<py::array_t<float>>(object))
        throw py::type_error(name + ": expected float32, got " + std::string(py::str(array.dtype())));
    if (!(array.flags() & Api::NPY_ARRAY_C_CONTIGUOUS_))
        throw py::value_error(name + ": expected a C-contiguous array; numpy.ascontiguousarray makes one");
    if (!(array.flags() & Api::NPY_ARRAY_ALIGNED_)) throw py::value_error(name + ": expected an aligned array");
    return array;
}

py::array requireTensor(py::handle object, const ArrayForm& form, py::ssize_t n, bool isWritten) {
    py::array array = requireFloats(object, form.name);
    if (!hasShape(array, form, n))
        throw py::value_error(form.name + ": expected " + formText(form, n) + ", got shape " + shapeText(array));
    if (isWritten && !array.writeable()) throw py::value_error(form.name + ": the array is read-only");
    return array;
}

std::string shapeText(const py::array& array) { return std::string(py::str(array.attr("shape"))); }
