// Numpy arrays as the library's tensors. Nothing is copied and nothing converted: an array is float32, dense and
// row-major, or it is refused with a message that says what was expected.
//   const float* values = floatsOf(array, "bias", {10});
#pragma once

#include <nolk.h>
#include <pybind11/numpy.h>

#include <string>
#include <vector>

namespace py = pybind11;

// What one input or output of a network must look like.
struct ArrayForm {
    std::string name;         // in messages
    nolk::TensorShape shape;  // of the whole batch

    // [n, c] for a matrix, else [n, c, h, w].
    std::vector<py::ssize_t> extents(py::ssize_t n) const;
    std::size_t sampleSize() const;  // floats
};

// The array behind the object. Throws TypeError for anything but a numpy array of float32, and for masked ones, whose
// mask would be ignored; ValueError for one that is not C-contiguous or not aligned.
py::array requireFloats(py::handle object, const std::string& name);

// The same for a tensor of n samples; n below 0 accepts any number. Throws ValueError for another shape, and for a
// read-only array if it is to be written.
py::array requireTensor(py::handle object, const ArrayForm& form, py::ssize_t n, bool isWritten);

// "(1, 28, 28)"
std::string shapeText(const py::array& array);
