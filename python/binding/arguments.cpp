#include "arguments.h"

#include <pybind11/stl.h>

#include <array>
#include <climits>
#include <vector>

#include "model/operations.h"

namespace {

constexpr const char* kKinds[] = {
    "float",           "Axis",          "BasicOp",  "DimsHW", "LstmWeights",  "Padding",     "Perm",   "ResizeMode",
    "ResizeTransMode", "SharedWeights", "SlicePos", "Tensor", "TensorLayout", "TensorShape", "Vector", "Weights"};
static_assert(std::size(kKinds) == std::variant_size_v<Argument>, "a name for each alternative, in their order");

int intOf(const std::string& name, py::handle value) {
    if (!PyIndex_Check(value.ptr())) throw py::type_error(name + ": expected an integer");
    const auto number = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
    if (!number) throw py::error_already_set();
    int overflow = 0;
    const long long result = PyLong_AsLongLongAndOverflow(number.ptr(), &overflow);
    if (overflow != 0 || result < INT_MIN || result > INT_MAX) throw py::value_error(name + ": does not fit 32 bits");
    return static_cast<int>(result);
}

std::vector<int> intsOf(const std::string& name, py::handle value) {
    if (!py::isinstance<py::sequence>(value) || py::isinstance<py::str>(value))
        throw py::type_error(name + ": expected integers");
    const auto items = py::reinterpret_borrow<py::sequence>(value);
    std::vector<int> numbers;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const py::object item = items[i];  // an array makes it only now
        numbers.push_back(intOf(name, item));
    }
    return numbers;
}

// The place of the word in the list.
template <std::size_t count>
int wordOf(const std::string& name, const char* const (&words)[count], py::handle value) {
    std::string expected;
    for (std::size_t i = 0; i < count; ++i) {
        const bool isText = py::isinstance<py::str>(value);  // which may have no UTF-8
        if (isText && PyUnicode_CompareWithASCIIString(value.ptr(), words[i]) == 0) return static_cast<int>(i);
        expected += (i == 0 ? "" : ", ") + std::string("'") + words[i] + "'";
    }
    throw py::value_error(name + ": expected one of " + expected);
}

// Reads a Python object as the argument of one operation's field.
struct Converter {
    const Operation& operation;
    std::string name;  // for messages
    py::handle value;

    py::array array(py::handle object, const char* part) const { return requireFloats(object, name + part); }

    py::array array(py::handle object, const char* part, const std::vector<py::ssize_t>& extents) const {
        py::array result = array(object, part);
        const std::vector<py::ssize_t> shape(result.shape(), result.shape() + result.ndim());
        if (shape != extents)
            throw py::value_error(name + part + ": expected " + std::string(py::str(py::cast(extents))) +
                                  ", got shape " + shapeText(result));
        return result;
    }

    py::array arrayOf(py::handle object, const char* part, int dimensions, const char* form) const {
        py::array result = array(object, part);
        if (result.ndim() != dimensions)
            throw py::value_error(name + part + ": expected " + form + ", got shape " + shapeText(result));
        return result;
    }

    // The builder's structures hold pointers to changeable floats, but recording only reads them.
    static float* dataOf(const py::array& array) { return const_cast<float*>(static_cast<const float*>(array.data())); }

    static int extent(const py::array& array, int axis) { return static_cast<int>(array.shape(axis)); }

    // The items of a tuple, of which the generated methods give the right number.
    template <std::size_t count>
    std::array<py::object, count> parts() const {
        std::array<py::object, count> items;
        const auto tuple = value.cast<py::tuple>();
        for (std::size_t i = 0; i < count; ++i) items.at(i) = tuple[i];
        return items;
    }

    void read(float& result) const {
        result = static_cast<float>(PyFloat_AsDouble(value.ptr()));
        if (!PyErr_Occurred()) return;
        const bool isTooLarge = PyErr_ExceptionMatches(PyExc_OverflowError) != 0;
        PyErr_Clear();
        if (isTooLarge) throw py::value_error(name + ": the number is too large for a float");
        throw py::type_error(name + ": expected a number, got " + Py_TYPE(value.ptr())->tp_name);
    }

    void read(nolk::Axis& axis) const {
        static constexpr const char* kAxes[] = {"n", "c", "h", "w"};
        if (!PyIndex_Check(value.ptr())) {
            axis = static_cast<nolk::Axis>(wordOf(name, kAxes, value));
            return;
        }
        const int place = intOf(name, value);
        if (place < -4 || place > 3)
            throw py::value_error(name + ": expected one of 'n', 'c', 'h', 'w' or -4 to 3, got " +
                                  std::to_string(place));
        axis = static_cast<nolk::Axis>(place < 0 ? place + 4 : place);  // some records hold no negative ones
    }

    void read(nolk::BasicOp& op) const {
        static constexpr const char* kNames[] = {"maximum", "mean", "sum", "minimum"};
        op = static_cast<nolk::BasicOp>(wordOf(name, kNames, value));
    }

    void read(nolk::DimsHW& dims) const {
        if (PyIndex_Check(value.ptr())) {
            dims.h = dims.w = intOf(name, value);
            return;
        }
        const std::vector<int> numbers = intsOf(name, value);
        if (numbers.size() != 2) throw py::value_error(name + ": expected an integer or (rows, columns)");
        dims = {numbers[0], numbers[1]};
    }

    void read(nolk::Padding& padding) const {
        if (PyIndex_Check(value.ptr())) {
            const int all = intOf(name, value);
            padding = {all, all, all, all};
            return;
        }
        const std::vector<int> p = intsOf(name, value);
        if (p.size() != 4) throw py::value_error(name + ": expected an integer or (top, bottom, left, right)");
        padding = {p[0], p[1], p[2], p[3]};
    }

    void read(nolk::Perm& perm) const {
        const std::vector<int> axes = intsOf(name, value);
        if (axes.size() != 4) throw py::value_error(name + ": expected four axes");
        for (std::size_t i = 0; i < 4; ++i) perm.axes[i] = axes[i];
    }

    void read(nolk::ResizeMode& mode) const {
        static constexpr const char* kModes[] = {"linear", "nearest"};
        mode = wordOf(name, kModes, value) == 0 ? nolk::ResizeMode::linear : nolk::ResizeMode::nearest;
    }

    void read(nolk::ResizeTransMode& mode) const {
        static constexpr const char* kModes[] = {"half_pixel", "align_corners"};
        mode = static_cast<nolk::ResizeTransMode>(wordOf(name, kModes, value));
    }

    void read(nolk::TensorLayout& layout) const {
        static constexpr const char* kLayouts[] = {"nchw", "nhwc"};
        layout = static_cast<nolk::TensorLayout>(wordOf(name, kLayouts, value));
    }

    void read(nolk::TensorShape& shape) const { shape = shapeOf(name, value); }

    void read(nolk::SlicePos& position) const {
        const auto [axis, start, end, step] = parts<4>();
        nolk::Axis along{};
        Converter{operation, name + " axis", axis}.read(along);
        position = {static_cast<int>(along), intOf(name + " start", start), intOf(name + " end", end),
                    intOf(name + " step", step)};
    }

    void read(nolk::Vector& vector) const {
        const py::array values = arrayOf(value, "", 1, "a vector");
        vector = {extent(values, 0), dataOf(values)};
    }

    void read(nolk::Tensor& tensor) const {
        const py::array values = array(value, "");
        tensor = {shapeOf(name, values.attr("shape")), dataOf(values)};
    }

    // (weight [out, in], bias [out] or None)
    void read(SharedWeights& shared) const {
        const auto [weight, bias] = parts<2>();
        const py::array w = arrayOf(weight, " weight", 2, "[out, in]");
        shared.weights = {1, extent(w, 0), extent(w, 1), 1, 1, true, dataOf(w), nullptr};
        if (!bias.is_none()) shared.weights.bias = dataOf(array(bias, " bias", {w.shape(0)}));
    }

    // (weight [groups * out, in, kh, kw], bias [groups * out] or None, groups); deConvolve's weight is [in, out, kh,
    // kw].
    void read(nolk::Weights& weights) const {
        const auto [weight, bias, groupCount] = parts<3>();
        const bool isTransposed = operation.code == kCodeOf<&nolk::RunnerBuilder::deConvolve>;
        const py::array w = arrayOf(weight, " weight", 4, isTransposed ? "[in, out, kh, kw]" : "[out, in, kh, kw]");
        const int groups = intOf(name + " groups", groupCount);
        const int out = extent(w, isTransposed ? 1 : 0), in = extent(w, isTransposed ? 0 : 1);
        if (groups < 1 || out % groups != 0)
            throw py::value_error(name + " groups: " + std::to_string(out) + " output channels do not divide into " +
                                  std::to_string(groups));
        weights = {groups, out / groups, in, extent(w, 2), extent(w, 3), false, dataOf(w), nullptr};
        if (!bias.is_none()) weights.bias = dataOf(array(bias, " bias", {out}));
    }

    // (input_weights [d, 4, H, I], recurrent_weights [d, 4, H, H], bias [d, 2, 4, H] or None, direction)
    void read(nolk::LstmWeights& lstm) const {
        static constexpr const char* kDirections[] = {"forward", "backward", "both"};
        const auto [input, recurrent, bias, direction] = parts<4>();
        const int place = wordOf(name + " direction", kDirections, direction), directions = place == 2 ? 2 : 1;
        const py::array w = arrayOf(input, " input_weights", 4, "[directions, 4, hidden, inputs]");
        const py::ssize_t hidden = w.shape(2);
        const py::array i = array(input, " input_weights", {directions, 4, hidden, w.shape(3)});
        const py::array r = array(recurrent, " recurrent_weights", {directions, 4, hidden, hidden});
        lstm = {static_cast<nolk::Direction>(place),
                directions,
                extent(w, 3),
                static_cast<int>(hidden),
                dataOf(i),
                dataOf(r),
                nullptr,
                true};
        if (!bias.is_none()) lstm.bias = dataOf(array(bias, " bias", {directions, 2, 4, hidden}));
    }
};

template <std::size_t kind = 0>
Argument convert(std::size_t wanted, const Converter& converter) {
    if constexpr (kind < std::variant_size_v<Argument>) {
        if (kind != wanted) return convert<kind + 1>(wanted, converter);
        std::variant_alternative_t<kind, Argument> result{};
        converter.read(result);
        return result;
    } else {
        throw py::type_error("no such kind of argument");
    }
}

}  // namespace

Argument argumentOf(const Operation& operation, const Field& field, py::handle value) {
    return convert(field.kind, {operation, std::string(operation.name) + ": " + field.name, value});
}

const char* kindName(const Field& field) { return kKinds[field.kind]; }

nolk::TensorShape shapeOf(const std::string& name, py::handle value) {
    const std::vector<int> s = intsOf(name, value);
    if (s.size() == 1) return {1, s[0], 1, 1, 1};
    if (s.size() == 3) return {1, s[0], s[1], s[2], 3};
    throw py::value_error(name + ": expected (channels,) or (channels, rows, columns), without the batch");
}
