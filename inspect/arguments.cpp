#include "inspect/arguments.h"

#include <algorithm>
#include <iterator>

#include "inspect/counts.h"
#include "inspect/format.h"

namespace {

// A visitor with an overload for each type of argument, which takes the field's name and the value. A generic overload
// may handle the remaining types.
template <typename... Functions>
struct Overloads : Functions... {
    using Functions::operator()...;
};
template <typename... Functions>
Overloads(Functions...) -> Overloads<Functions...>;

template <typename Visitor>
void forEachField(const Call& call, const Visitor& visitor) {
    for (std::size_t i = 0; i < call.arguments.size(); ++i) {
        const std::string name = call.operation.fields[i].name;
        std::visit([&](const auto& value) { visitor(name, value); }, call.arguments[i]);
    }
}

template <std::size_t count>
std::string nameOf(const char* const (&names)[count], int value) {
    const bool isKnown = value >= 0 && value < static_cast<int>(count);
    return isKnown ? names[value] : std::to_string(value);
}

std::string axisText(int axis) {
    static constexpr const char* kAxes[] = {"n", "c", "h", "w"};
    return "axis " + nameOf(kAxes, axis >= -4 && axis < 0 ? axis + 4 : axis);
}

std::string enumText(nolk::Axis axis) { return axisText(static_cast<int>(axis)); }

std::string enumText(nolk::BasicOp value) {
    static constexpr const char* kNames[] = {"maximum", "mean", "sum", "minimum"};
    return nameOf(kNames, static_cast<int>(value));
}

std::string enumText(nolk::TensorLayout value) {
    static constexpr const char* kNames[] = {"nchw", "nhwc"};
    return nameOf(kNames, static_cast<int>(value));
}

std::string enumText(nolk::ResizeMode value) {
    static constexpr const char* kNames[] = {"mode 0", "linear", "nearest"};
    return nameOf(kNames, static_cast<int>(value));
}

std::string enumText(nolk::ResizeTransMode value) {
    static constexpr const char* kNames[] = {"half pixel", "align corners"};
    return nameOf(kNames, static_cast<int>(value));
}

std::string enumText(nolk::Direction value) {
    static constexpr const char* kNames[] = {"forward", "backward", "both ways"};
    return nameOf(kNames, static_cast<int>(value));
}

// Empty for 1 x 1, except for a kernel.
std::string dimsText(const std::string& name, nolk::DimsHW dims) {
    if (name == "kernel") return extentsText(dims.h, dims.w);
    if (dims.h == 1 && dims.w == 1) return {};
    return name + " " + (dims.h == dims.w ? std::to_string(dims.h) : extentsText(dims.h, dims.w));
}

std::string paddingText(nolk::Padding p) {
    const bool isEven = p.top == p.bottom && p.top == p.left && p.top == p.right;
    if (isEven) return p.top == 0 ? "" : "pad " + std::to_string(p.top);
    return "pad " + std::to_string(p.top) + " " + std::to_string(p.bottom) + " " + std::to_string(p.left) + " " +
           std::to_string(p.right);
}

std::string groupsText(const nolk::Weights& w) { return w.groups == 1 ? "" : "groups " + std::to_string(w.groups); }

std::string permText(nolk::Perm perm) {
    std::string text;
    for (const int axis : perm.axes) text += (text.empty() ? "" : " ") + std::to_string(axis);
    return text;
}

std::int64_t storedGroups(const nolk::Weights& w) { return w.shared ? 1 : w.groups; }

void addWeights(std::vector<FloatArray>& arrays, const nolk::Weights& w) {
    const std::int64_t groups = storedGroups(w);
    arrays.push_back({"weights", w.weight, productOf({groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW})});
    if (w.bias) arrays.push_back({"bias", w.bias, productOf({groups, w.outChannels})});
}

void addLstmWeights(std::vector<FloatArray>& arrays, const nolk::LstmWeights& w) {
    const std::int64_t rows = productOf({w.numDirections, 4, w.hiddenSize});
    arrays.push_back({"input weights", w.inputWeights, productOf({rows, w.inputSize})});
    arrays.push_back({"recurrent weights", w.recurrentWeights, productOf({rows, w.hiddenSize})});
    if (w.bias) arrays.push_back({"bias", w.bias, productOf({rows, 2})});
}

std::vector<double> extentsOf(const nolk::Weights& w) {
    return {double(w.groups), double(w.outChannels), double(w.inChannels), double(w.kernelH), double(w.kernelW)};
}

}  // namespace

std::string extentsText(int h, int w) { return std::to_string(h) + "x" + std::to_string(w); }

std::string detailsOf(const Call& call) {
    std::string text;
    const auto add = [&text](const std::string& part) {
        if (!part.empty()) text += (text.empty() ? "" : ", ") + part;
    };
    bool isNearest = false;
    // The kernel comes first, although the weights are the last argument.
    for (const Argument& argument : call.arguments)
        if (const auto* w = std::get_if<nolk::Weights>(&argument)) add(extentsText(w->kernelH, w->kernelW));
    forEachField(
        call, Overloads{
                  [&](const std::string& name, float value) { add(name + " " + shortText(value)); },
                  [&](const std::string& name, nolk::DimsHW dims) { add(dimsText(name, dims)); },
                  [&](const std::string&, nolk::Padding padding) { add(paddingText(padding)); },
                  [&](const std::string&, const nolk::Weights& w) { add(groupsText(w)); },
                  [&](const std::string&, const SharedWeights& w) { add(groupsText(w.weights)); },
                  [&](const std::string&, const nolk::LstmWeights& w) {
                      add(enumText(w.direction));
                      add("hidden " + std::to_string(w.hiddenSize));
                  },
                  [&](const std::string&, nolk::Perm perm) { add(permText(perm)); },
                  [&](const std::string&, nolk::SlicePos pos) {
                      add(axisText(pos.axis));
                      add(std::to_string(pos.start) + ":" + std::to_string(pos.end) + ":" + std::to_string(pos.step));
                  },
                  [&](const std::string&, nolk::ResizeMode mode) {
                      isNearest = mode == nolk::ResizeMode::nearest;
                      add(enumText(mode));
                  },
                  // Nearest ignores the trans mode.
                  [&](const std::string&, nolk::ResizeTransMode mode) { add(isNearest ? "" : enumText(mode)); },
                  [&](const std::string&, nolk::Axis axis) { add(enumText(axis)); },
                  [&](const std::string&, nolk::BasicOp op) { add(enumText(op)); },
                  [&](const std::string&, nolk::TensorLayout layout) { add(enumText(layout)); },
                  [](const std::string&, const nolk::TensorShape&) {},
                  [](const std::string&, const nolk::Tensor&) {},
                  [](const std::string&, const nolk::Vector&) {},
              });
    return text;
}

std::vector<nolk::ModelParameter> parametersOf(const Call& call) {
    std::vector<nolk::ModelParameter> parameters;
    const auto add = [&parameters](const std::string& name, std::vector<double> values) {
        parameters.push_back({name, std::move(values)});
    };
    forEachField(call, Overloads{
                           [&](const std::string& name, float value) { add(name, {double(value)}); },
                           [&](const std::string& name, nolk::DimsHW d) {
                               add(name, {double(d.h), double(d.w)});
                           },
                           [&](const std::string& name, nolk::Padding p) {
                               add(name, {double(p.top), double(p.bottom), double(p.left), double(p.right)});
                           },
                           [&](const std::string& name, const nolk::Weights& w) { add(name, extentsOf(w)); },
                           [&](const std::string& name, const SharedWeights& w) { add(name, extentsOf(w.weights)); },
                           [&](const std::string&, const nolk::LstmWeights& w) {
                               add("direction", {double(static_cast<int>(w.direction))});
                               add("numDirections", {double(w.numDirections)});
                               add("inputSize", {double(w.inputSize)});
                               add("hiddenSize", {double(w.hiddenSize)});
                           },
                           [&](const std::string& name, nolk::Perm p) {
                               add(name, {std::begin(p.axes), std::end(p.axes)});
                           },
                           [&](const std::string& name, nolk::SlicePos p) {
                               add(name, {double(p.axis), double(p.start), double(p.end), double(p.step)});
                           },
                           [&](const std::string& name, const nolk::Vector& v) { add(name, {double(v.count)}); },
                           [](const std::string&, const nolk::TensorShape&) {},
                           [](const std::string&, const nolk::Tensor&) {},
                           [&](const std::string& name, auto value) { add(name, {double(static_cast<int>(value))}); },
                       });
    return parameters;
}

std::vector<FloatArray> arraysOf(const Call& call) {
    std::vector<FloatArray> arrays;
    forEachField(call, Overloads{
                           [&](const std::string&, const nolk::Weights& w) { addWeights(arrays, w); },
                           [&](const std::string&, const SharedWeights& w) { addWeights(arrays, w.weights); },
                           [&](const std::string&, const nolk::LstmWeights& w) { addLstmWeights(arrays, w); },
                           [&](const std::string& name, const nolk::Vector& v) {
                               arrays.push_back({name, v.data, std::max(v.count, 0)});
                           },
                           [&](const std::string& name, const nolk::Tensor& t) {
                               const nolk::TensorShape& s = t.shape;
                               arrays.push_back({name, t.data, s.n < 1 ? 0 : productOf({s.c, s.h, s.w})});
                           },
                           [](const std::string&, auto) {},
                       });
    return arrays;
}

std::int64_t floatCountOf(const Call& call) {
    std::int64_t count = 0;
    for (const FloatArray& array : arraysOf(call)) count = sumOf(count, array.count);
    for (const Argument& argument : call.arguments)
        if (const auto* constant = std::get_if<nolk::Tensor>(&argument)) count = elementsOf(constant->shape);
    return count;
}
