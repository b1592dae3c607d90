#include "nolk/model/NotingBuilder.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <utility>

#include "nolk/model/counts.h"
#include "nolk/model/doubts.h"
#include "nolk/model/multiplyAdds.h"
#include "writer/outputShapes.h"

using nolk::TensorX;

// What the builder hands out as a TensorX, which is opaque.
struct NotingBuilder::Tensor {
    nolk::TensorShape shape;
    int place;
};

namespace {

constexpr const char* kUnwritten = "the output is left unwritten";

std::string number(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", static_cast<double>(value));
    return text;
}

std::string times(int h, int w) { return std::to_string(h) + "x" + std::to_string(w); }

// "stride 2", "stride 2x1"; nothing for ones.
std::string perAxis(const char* what, nolk::DimsHW dims) {
    if (dims.h == 1 && dims.w == 1) return {};
    return std::string(", ") + what + " " + (dims.h == dims.w ? std::to_string(dims.h) : times(dims.h, dims.w));
}

std::string amounts(nolk::Padding p) {
    if (p.top == p.bottom && p.top == p.left && p.top == p.right) return std::to_string(p.top);
    return std::to_string(p.top) + " " + std::to_string(p.bottom) + " " + std::to_string(p.left) + " " +
           std::to_string(p.right);
}

std::string padded(nolk::Padding p) {
    const std::string text = amounts(p);
    return text == "0" ? std::string() : ", pad " + text;
}

template <std::size_t count>
std::string nameOf(const char* const (&names)[count], int value) {
    const bool known = value >= 0 && value < static_cast<int>(count);
    return known ? names[value] : std::to_string(value);
}

std::string axisName(int axis) {
    static constexpr const char* kAxes[] = {"n", "c", "h", "w"};
    return "axis " + nameOf(kAxes, axis >= -4 && axis < 0 ? axis + 4 : axis);
}

std::string convolutionDetails(nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                               const nolk::Weights& w) {
    std::string text =
        times(w.kernelH, w.kernelW) + perAxis("stride", stride) + padded(padding) + perAxis("dilation", dilation);
    if (w.groups != 1) text += ", groups " + std::to_string(w.groups);
    return text;
}

// Weights and bias of a convolution or a full connection.
void noteWeights(NotedOperation& operation, const nolk::Weights& w) {
    const std::int64_t groups = w.shared ? 1 : w.groups;
    const std::int64_t weights = productOf({groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW});
    const std::int64_t biases = w.bias ? productOf({groups, w.outChannels}) : 0;
    operation.parameters = sumOf(weights, biases);
    doubtFloats(operation, "weights", w.weight, weights);
    doubtFloats(operation, "bias", w.bias, biases);
}

void noteVectors(NotedOperation& operation, const nolk::TensorShape& x,
                 std::initializer_list<std::pair<const char*, nolk::Vector>> vectors) {
    for (const auto& [name, vector] : vectors) {
        operation.parameters = sumOf(operation.parameters, std::max(vector.count, 0));
        doubtVector(operation, name, vector, x);
    }
}

void noteNumbers(NotedOperation& operation, std::initializer_list<std::pair<const char*, float>> numbers) {
    for (const auto& [name, value] : numbers) {
        operation.details += (operation.details.empty() ? "" : ", ") + std::string(name) + " " + number(value);
        if (!std::isfinite(value)) doubtFloats(operation, name, &value, 1);
    }
}

bool isAxis(int axis) { return axis >= 0 && axis <= 3; }

}  // namespace

NotingBuilder::NotingBuilder() = default;

NotingBuilder::~NotingBuilder() = default;

int NotingBuilder::placeOf(const TensorX* x) const { return x ? reinterpret_cast<const Tensor*>(x)->place : -1; }

nolk::TensorShape NotingBuilder::shapeOf(TensorX* x) {
    return x ? reinterpret_cast<const Tensor*>(x)->shape : nolk::TensorShape{0, 0, 0, 0, 0};
}

NotedOperation NotingBuilder::begin(const char* name, const std::vector<TensorX*>& inputs) const {
    NotedOperation operation;
    operation.name = name;
    for (const TensorX* x : inputs) operation.inputs.push_back(placeOf(x));
    return operation;
}

// Without all of its inputs nothing that follows from their shapes is known.
TensorX* NotingBuilder::finish(NotedOperation operation, nolk::TensorShape output) {
    const auto& in = operation.inputs;
    operation.isMade = std::find(in.begin(), in.end(), -1) == in.end();
    if (operation.isMade) {
        operation.output = output;
        operation.work = sumOf(std::max(operation.work, operation.multiplyAdds), elementsOf(output));
    } else {
        operation.doubts.clear();
        operation.multiplyAdds = operation.work = operation.scratchFloats = 0;
    }
    operations_.push_back(std::move(operation));
    if (!operations_.back().isMade) return nullptr;
    const int place = static_cast<int>(operations_.size()) - 1;
    tensors_.push_back(std::make_unique<Tensor>(Tensor{output, place}));
    return reinterpret_cast<TensorX*>(tensors_.back().get());
}

TensorX* NotingBuilder::unary(const char* name, TensorX* x) { return finish(begin(name, {x}), shapeOf(x)); }

TensorX* NotingBuilder::eltwise(const char* name, TensorX* a, TensorX* b) {
    NotedOperation operation = begin(name, {a, b});
    doubtBroadcast(operation, shapeOf(a), shapeOf(b));
    return finish(std::move(operation), shapeOf(a));
}

TensorX* NotingBuilder::input(nolk::TensorShape shape) { return finish(begin("input", {}), shape); }

TensorX* NotingBuilder::constTensor(nolk::Tensor* tensor) {
    if (!tensor) return nullptr;
    NotedOperation operation = begin("constTensor", {});
    operation.parameters = elementsOf(tensor->shape);
    doubtFloats(operation, "values", tensor->data, operation.parameters);
    return finish(std::move(operation), tensor->shape);
}

TensorX* NotingBuilder::convolve(TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                                 nolk::Weights w) {
    const nolk::TensorShape in = shapeOf(x), out = outputShape::convolved(in, padding, stride, dilation, w);
    NotedOperation operation = begin("convolve", {x});
    operation.details = convolutionDetails(padding, stride, dilation, w);
    noteWeights(operation, w);
    doubtDims(operation, "stride", stride);
    doubtDims(operation, "dilation", dilation);
    doubtDims(operation, "kernel", {w.kernelH, w.kernelW});
    doubtChannels(operation, productOf({w.groups, w.inChannels}), in);
    operation.scratchFloats = productOf({out.h, out.w, w.inChannels, w.kernelH, w.kernelW});
    operation.multiplyAdds = multiplyAdds::ofConvolve(out, w);
    return finish(std::move(operation), out);
}

TensorX* NotingBuilder::deConvolve(TensorX* x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                                   nolk::Weights w) {
    const nolk::TensorShape in = shapeOf(x);
    NotedOperation operation = begin("deConvolve", {x});
    operation.details = convolutionDetails(padding, stride, dilation, w);
    noteWeights(operation, w);
    doubtDims(operation, "stride", stride);
    doubtDims(operation, "kernel", {w.kernelH, w.kernelW});
    doubtChannels(operation, w.inChannels, in);
    if (dilation.h != 1 || dilation.w != 1)
        operation.doubts.push_back({false, "dilation enlarges the output, but is not carried out"});
    operation.scratchFloats = productOf({in.h, in.w, w.outChannels, w.kernelH, w.kernelW});
    operation.multiplyAdds = multiplyAdds::ofDeConvolve(in, w);
    return finish(std::move(operation), outputShape::deConvolved(in, padding, stride, dilation, w));
}

TensorX* NotingBuilder::pad(TensorX* x, nolk::Padding padding) {
    NotedOperation operation = begin("pad", {x});
    operation.details = amounts(padding);
    return finish(std::move(operation), outputShape::padded(shapeOf(x), padding));
}

// build refuses axes that do not exist.
TensorX* NotingBuilder::transpose(TensorX* x, nolk::Perm perm) {
    NotedOperation operation = begin("transpose", {x});
    const auto& axes = perm.axes;
    bool isPermutation = true;
    for (int i = 0; i < 4; ++i) {
        operation.details += (i > 0 ? " " : "") + std::to_string(axes[i]);
        isPermutation = isPermutation && std::count(axes, axes + 4, i) == 1;
    }
    if (!isPermutation) operation.doubts.push_back({false, "axes " + operation.details + " are no permutation"});
    const bool exist = std::all_of(axes, axes + 4, isAxis);
    return finish(std::move(operation), exist ? outputShape::transposed(shapeOf(x), perm) : shapeOf(x));
}

// build refuses an axis that does not exist.
TensorX* NotingBuilder::slice(TensorX* x, nolk::SlicePos pos) {
    NotedOperation operation = begin("slice", {x});
    operation.details = axisName(pos.axis) + ", " + std::to_string(pos.start) + ":" + std::to_string(pos.end) + ":" +
                        std::to_string(pos.step);
    const int axis = pos.axis < 0 ? pos.axis + 4 : pos.axis;
    return finish(std::move(operation), isAxis(axis) ? outputShape::sliced(shapeOf(x), axis, pos) : shapeOf(x));
}

TensorX* NotingBuilder::fullConnect(TensorX* x, nolk::Weights w) {
    const nolk::TensorShape in = shapeOf(x);
    NotedOperation operation = begin("fullConnect", {x});
    if (w.groups != 1) operation.details = "groups " + std::to_string(w.groups);
    noteWeights(operation, w);
    const std::int64_t rowLength = productOf({w.inChannels, w.kernelH, w.kernelW});
    doubtChannels(operation, productOf({w.groups, rowLength}), in);
    if (in.h != 1 || in.w != 1)
        operation.doubts.push_back({false, "rows and columns of the input should be 1, are " + times(in.h, in.w)});
    operation.multiplyAdds = multiplyAdds::ofFullConnect(in, w);
    return finish(std::move(operation), outputShape::fullyConnected(in, w));
}

TensorX* NotingBuilder::batchNormalize(TensorX* x, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean,
                                       nolk::Vector variance, float epsilon) {
    NotedOperation operation = begin("batchNormalize", {x});
    noteVectors(operation, shapeOf(x), {{"scale", scale}, {"bias", bias}, {"mean", mean}, {"variance", variance}});
    noteNumbers(operation, {{"epsilon", epsilon}});
    doubtVariance(operation, variance, epsilon, shapeOf(x));
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::pool(const char* name, TensorX* x, nolk::DimsHW kernel, nolk::Padding padding,
                             nolk::DimsHW stride) {
    const nolk::TensorShape in = shapeOf(x), out = outputShape::pooled(in, kernel, padding, stride);
    NotedOperation operation = begin(name, {x});
    operation.details = times(kernel.h, kernel.w) + perAxis("stride", stride) + padded(padding);
    doubtDims(operation, "kernel", kernel);
    doubtDims(operation, "stride", stride);
    operation.work = productOf({elementsOf(out), std::min(kernel.h, in.h), std::min(kernel.w, in.w)});
    return finish(std::move(operation), out);
}

TensorX* NotingBuilder::maxPool(TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    return pool("maxPool", x, kernel, padding, stride);
}

TensorX* NotingBuilder::avgPool(TensorX* x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    return pool("avgPool", x, kernel, padding, stride);
}

TensorX* NotingBuilder::relu(TensorX* x) { return unary("relu", x); }

TensorX* NotingBuilder::softmax(TensorX* x, nolk::Axis axis) {
    NotedOperation operation = begin("softmax", {x});
    operation.details = axisName(static_cast<int>(axis));
    doubtEnum(operation, true, "axis", static_cast<int>(axis), 1, 3, kUnwritten);
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::concat(TensorX** inputs, int count, nolk::Axis axis) {
    std::vector<TensorX*> tensors;
    if (inputs && count > 0) tensors.assign(inputs, inputs + count);
    NotedOperation operation = begin("concat", tensors);
    const int index = static_cast<int>(axis);
    operation.details = axisName(index);
    if (tensors.empty()) {
        // Nothing can be made of nothing; the built-in implementation ends the process.
        operation.inputs.push_back(-1);
        finish(std::move(operation), {});
        operations_.back().inputs.clear();
        operations_.back().doubts.push_back({true, "joins nothing, which ends the process"});
        return nullptr;
    }
    doubtEnum(operation, true, "axis", index, -4, 3, kUnwritten);
    std::vector<nolk::TensorShape> shapes;
    for (TensorX* x : tensors) shapes.push_back(shapeOf(x));
    const int fromStart = index >= -4 && index < 0 ? index + 4 : index;
    if (isAxis(fromStart)) doubtJoined(operation, shapes, fromStart);
    return finish(std::move(operation),
                  isAxis(fromStart) ? outputShape::concatenated(shapes, fromStart) : shapes.front());
}

TensorX* NotingBuilder::add(TensorX* a, TensorX* b) { return eltwise("add", a, b); }

TensorX* NotingBuilder::sub(TensorX* a, TensorX* b) { return eltwise("sub", a, b); }

TensorX* NotingBuilder::sigmoid(TensorX* x) { return unary("sigmoid", x); }

TensorX* NotingBuilder::reshape(TensorX* x, nolk::TensorShape shape, nolk::TensorLayout layout) {
    static constexpr const char* kLayouts[] = {"nchw", "nhwc"};
    NotedOperation operation = begin("reshape", {x});
    operation.details = nameOf(kLayouts, static_cast<int>(layout));
    operation.isView = layout == nolk::TensorLayout::nchw;
    doubtEnum(operation, true, "layout", static_cast<int>(layout), 0, 1, kUnwritten);
    doubtElements(operation, shapeOf(x), shape);
    return finish(std::move(operation), shape);
}

TensorX* NotingBuilder::multiply(TensorX* a, TensorX* b) { return eltwise("multiply", a, b); }

TensorX* NotingBuilder::exp(TensorX* x) { return unary("exp", x); }

TensorX* NotingBuilder::divide(TensorX* a, TensorX* b) { return eltwise("divide", a, b); }

TensorX* NotingBuilder::reduce(TensorX* x, nolk::TensorShape shape, nolk::BasicOp op) {
    static constexpr const char* kOps[] = {"maximum", "mean", "sum", "minimum"};
    NotedOperation operation = begin("reduce", {x});
    operation.details = nameOf(kOps, static_cast<int>(op));
    operation.work = elementsOf(shapeOf(x));
    doubtEnum(operation, true, "operator", static_cast<int>(op), 0, 3, kUnwritten);
    doubtReduced(operation, shapeOf(x), shape);
    return finish(std::move(operation), shape);
}

TensorX* NotingBuilder::l2normalize(TensorX* x) { return unary("l2normalize", x); }

TensorX* NotingBuilder::clip(TensorX* x, float min, float max) {
    NotedOperation operation = begin("clip", {x});
    operation.details = number(min) + " to " + number(max);
    if (!(min <= max)) operation.doubts.push_back({false, "no number lies in " + operation.details});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::lstm(TensorX* x, nolk::LstmWeights w) {
    static constexpr const char* kDirections[] = {"forward", "backward", "both ways"};
    const nolk::TensorShape in = shapeOf(x);
    NotedOperation operation = begin("lstm", {x});
    operation.details = nameOf(kDirections, static_cast<int>(w.direction)) + ", hidden " + std::to_string(w.hiddenSize);
    doubtEnum(operation, false, "direction", static_cast<int>(w.direction), 0, 2, "it is taken for forward");
    const std::int64_t inputs = productOf({w.numDirections, 4, w.hiddenSize, w.inputSize});
    const std::int64_t recurrent = productOf({w.numDirections, 4, w.hiddenSize, w.hiddenSize});
    const std::int64_t biases = w.bias ? productOf({w.numDirections, 8, w.hiddenSize}) : 0;
    operation.parameters = sumOf(sumOf(inputs, recurrent), biases);
    doubtFloats(operation, "input weights", w.inputWeights, inputs);
    doubtFloats(operation, "recurrent weights", w.recurrentWeights, recurrent);
    doubtFloats(operation, "bias", w.bias, biases);
    operation.multiplyAdds = multiplyAdds::ofLstm(in, w);
    return finish(std::move(operation), outputShape::lstmOutput(in, w));
}

TensorX* NotingBuilder::hardSigmoid(TensorX* x, float alpha, float beta) {
    NotedOperation operation = begin("hardSigmoid", {x});
    noteNumbers(operation, {{"alpha", alpha}, {"beta", beta}});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::max(TensorX* a, TensorX* b) { return eltwise("max", a, b); }

TensorX* NotingBuilder::instanceNormalization(TensorX* x, float epsilon) {
    NotedOperation operation = begin("instanceNormalization", {x});
    noteNumbers(operation, {{"epsilon", epsilon}});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::instanceNormalization(TensorX* x, nolk::Vector scale, nolk::Vector bias, float epsilon) {
    NotedOperation operation = begin("instanceNormalization", {x});
    noteVectors(operation, shapeOf(x), {{"scale", scale}, {"bias", bias}});
    noteNumbers(operation, {{"epsilon", epsilon}});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::resize(TensorX* x, nolk::TensorShape shape, nolk::ResizeMode mode,
                               nolk::ResizeTransMode transMode) {
    static constexpr const char* kModes[] = {"mode 0", "linear", "nearest"};
    static constexpr const char* kTransModes[] = {"half pixel", "align corners"};
    NotedOperation operation = begin("resize", {x});
    operation.details = nameOf(kModes, static_cast<int>(mode));
    if (mode == nolk::ResizeMode::linear) operation.details += ", " + nameOf(kTransModes, static_cast<int>(transMode));
    doubtEnum(operation, true, "mode", static_cast<int>(mode), 1, 2, "running it ends the process");
    doubtEnum(operation, false, "trans mode", static_cast<int>(transMode), 0, 1, "it is taken for align corners");
    doubtResized(operation, shapeOf(x), shape);
    return finish(std::move(operation), shape);
}

TensorX* NotingBuilder::abs(TensorX* x) { return unary("abs", x); }

TensorX* NotingBuilder::leakyRelu(TensorX* x, float alpha) {
    NotedOperation operation = begin("leakyRelu", {x});
    noteNumbers(operation, {{"alpha", alpha}});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::tanh(TensorX* x) { return unary("tanh", x); }

TensorX* NotingBuilder::prelu(TensorX* x, float* slopes, int count) {
    NotedOperation operation = begin("prelu", {x});
    noteVectors(operation, shapeOf(x), {{"slopes", {count, slopes}}});
    return finish(std::move(operation), shapeOf(x));
}

TensorX* NotingBuilder::matMul(TensorX* a, TensorX* b) {
    const nolk::TensorShape left = shapeOf(a), right = shapeOf(b);
    NotedOperation operation = begin("matMul", {a, b});
    doubtProduct(operation, left, right);
    operation.multiplyAdds = multiplyAdds::ofMatMul(left, right);
    return finish(std::move(operation), outputShape::matMultiplied(left, right));
}

nolk::Runner* NotingBuilder::build(TensorX**, int) { return nullptr; }
