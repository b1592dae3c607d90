#include "convert/lower/Program.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <stdexcept>
#include <utility>

namespace convert {

namespace {

using Builder = nolk::RunnerBuilder;
using nolk::TensorShape;
using nolk::TensorX;

constexpr int kMostParts = 255;                           // a concat's inputs are counted in a byte
constexpr std::size_t kMostSteps = std::size_t{1} << 18;  // many times the records that a file holds
constexpr std::size_t kComparedFloats = 64;               // constants up to this size are compared by their values

std::string text(std::initializer_list<double> values) {
    std::string joined;
    for (const double value : values) {
        char bytes[sizeof value];
        std::memcpy(bytes, &value, sizeof value);
        joined.append(bytes, sizeof value);
    }
    return joined;
}

std::string shapeKey(const TensorShape& s) {
    return text({double(s.n), double(s.c), double(s.h), double(s.w), double(s.dims)});
}

std::string paddingKey(nolk::Padding p) {
    return text({double(p.top), double(p.bottom), double(p.left), double(p.right)});
}

std::string dimsKey(nolk::DimsHW d) { return text({double(d.h), double(d.w)}); }

std::string floatsKey(const Floats& values) {
    if (!values) return "none";
    if (values->size() > kComparedFloats) return text({double(reinterpret_cast<std::uintptr_t>(values.get()))});
    return {reinterpret_cast<const char*>(values->data()), values->size() * sizeof(float)};
}

std::string weightsKey(const KernelWeights& w) {
    return text({double(w.groups), double(w.outChannels), double(w.inChannels), double(w.kernelH), double(w.kernelW)}) +
           floatsKey(w.weight) + "/" + floatsKey(w.bias);
}

// Builders take arrays that they may change; the writer only reads them.
float* writable(const Floats& values) { return values ? const_cast<float*>(values->data()) : nullptr; }

nolk::Vector vectorOf(const Floats& values) { return {static_cast<std::int32_t>(values->size()), writable(values)}; }

nolk::Weights weightsOf(const KernelWeights& w) {
    return {w.groups, w.outChannels, w.inChannels, w.kernelH, w.kernelW, false, writable(w.weight), writable(w.bias)};
}

// Masks have infinities, which exclude values from a softmax when they are added to them. The largest finite values do
// that as well, and the checks of a file report weights that are not finite as damage.
Floats withoutInfinities(const Floats& values) {
    const auto isInfinite = [](float value) { return std::isinf(value); };
    if (std::none_of(values->begin(), values->end(), isInfinite)) return values;
    std::vector<float> finite = *values;
    constexpr float kLargest = std::numeric_limits<float>::max();
    for (float& value : finite)
        if (isInfinite(value)) value = std::copysign(kLargest, value);
    return std::make_shared<const std::vector<float>>(std::move(finite));
}

int widest(nolk::Padding p) { return std::max({p.top, p.bottom, p.left, p.right}); }

bool sameShape(const TensorShape& a, const TensorShape& b) {
    return a.c == b.c && a.h == b.h && a.w == b.w && a.dims == b.dims;
}

std::int64_t countOf(const Floats& values) { return values ? static_cast<std::int64_t>(values->size()) : 0; }

std::int64_t countOf(const KernelWeights& weights) { return countOf(weights.weight) + countOf(weights.bias); }

std::int64_t elementsOf(const TensorShape& s) { return std::int64_t{s.c} * s.h * s.w; }

}  // namespace

int extentAt(const TensorShape& shape, nolk::Axis axis) {
    const std::array<int, 4> extents{shape.n, shape.c, shape.h, shape.w};
    return extents[static_cast<std::size_t>(axis)];
}

TensorShape withExtent(TensorShape shape, nolk::Axis axis, int extent) {
    const std::array<int*, 4> extents{&shape.n, &shape.c, &shape.h, &shape.w};
    *extents[static_cast<std::size_t>(axis)] = extent;
    return shape;
}

int Program::append(std::string name, const std::string& arguments, std::vector<int> inputs, TensorShape shape,
                    Record record, std::int64_t floats) {
    std::string key = name + ":" + arguments + ":";
    for (const int x : inputs) key += std::to_string(x) + ",";
    const auto found = places_.find(key);
    if (found != places_.end() && name != "input") return found->second;
    if (elementsOf(shape) < 1 || elementsOf(shape) > std::numeric_limits<int>::max())
        throw std::out_of_range(name + ": a result of " + std::to_string(elementsOf(shape)) + " elements");
    if (steps_.size() == kMostSteps)
        throw std::out_of_range(name + ": the network becomes more than " + std::to_string(kMostSteps) + " operations");
    budget_.take(floats);
    const int place = static_cast<int>(steps_.size());
    places_[key] = place;
    Step step;
    step.name = std::move(name);
    step.key = std::move(key);
    step.inputs = std::move(inputs);
    step.shape = shape;
    step.record = std::move(record);
    step.origin = origin_;
    steps_.push_back(std::move(step));
    return place;
}

int Program::input(TensorShape shape) {
    return append("input", "", {}, shape, [shape](Builder& b, const auto&) { return b.input(shape); });
}

int Program::constant(TensorShape shape, const Floats& given) {
    if (elementsOf(shape) != static_cast<std::int64_t>(given->size()))
        throw std::logic_error("a constant has other extents than values");
    const Floats values = withoutInfinities(given);
    return append(
        "constTensor", shapeKey(shape) + floatsKey(values), {}, shape,
        [shape, values](Builder& b, const auto&) {
            nolk::Tensor tensor{shape, writable(values)};
            return b.constTensor(&tensor);
        },
        countOf(values));
}

int Program::scalar(float value) {
    return constant({1, 1, 1, 1, 3}, std::make_shared<const std::vector<float>>(1, value));
}

int Program::view(int x, TensorShape shape) {
    if (sameShape(shapeOf(x), shape)) return x;
    if (elementsOf(shapeOf(x)) != elementsOf(shape))
        throw std::logic_error("a view has other elements than its tensor");
    if (at(x).name == "reshape") return view(at(x).inputs[0], shape);
    return append("reshape", shapeKey(shape), {x}, shape,
                  [shape](Builder& b, const auto& in) { return b.reshape(in[0], shape, nolk::TensorLayout::nchw); });
}

int Program::unary(const char* name, const std::string& arguments, int x,
                   std::function<TensorX*(Builder&, TensorX*)> call, std::int64_t floats) {
    return append(
        name, arguments, {x}, shapeOf(x),
        [call = std::move(call)](Builder& b, const auto& in) { return call(b, in[0]); }, floats);
}

int Program::relu(int x) {
    return unary("relu", "", x, [](Builder& b, TensorX* in) { return b.relu(in); });
}

int Program::sigmoid(int x) {
    return unary("sigmoid", "", x, [](Builder& b, TensorX* in) { return b.sigmoid(in); });
}

int Program::exp(int x) {
    return unary("exp", "", x, [](Builder& b, TensorX* in) { return b.exp(in); });
}

int Program::abs(int x) {
    return unary("abs", "", x, [](Builder& b, TensorX* in) { return b.abs(in); });
}

int Program::tanh(int x) {
    return unary("tanh", "", x, [](Builder& b, TensorX* in) { return b.tanh(in); });
}

int Program::l2normalize(int x) {
    return unary("l2normalize", "", x, [](Builder& b, TensorX* in) { return b.l2normalize(in); });
}

int Program::clip(int x, float min, float max) {
    return unary("clip", text({min, max}), x, [=](Builder& b, TensorX* in) { return b.clip(in, min, max); });
}

int Program::leakyRelu(int x, float alpha) {
    return unary("leakyRelu", text({alpha}), x, [=](Builder& b, TensorX* in) { return b.leakyRelu(in, alpha); });
}

int Program::hardSigmoid(int x, float alpha, float beta) {
    return unary("hardSigmoid", text({alpha, beta}), x,
                 [=](Builder& b, TensorX* in) { return b.hardSigmoid(in, alpha, beta); });
}

int Program::instanceNormalization(int x, float epsilon) {
    return unary("instanceNormalization", text({epsilon}), x,
                 [=](Builder& b, TensorX* in) { return b.instanceNormalization(in, epsilon); });
}

int Program::instanceNormalization(int x, const Floats& scale, const Floats& bias, float epsilon) {
    return unary(
        "instanceNormalization", text({epsilon}) + floatsKey(scale) + "/" + floatsKey(bias), x,
        [=](Builder& b, TensorX* in) { return b.instanceNormalization(in, vectorOf(scale), vectorOf(bias), epsilon); },
        countOf(scale) + countOf(bias));
}

int Program::batchNormalize(int x, const Floats& scale, const Floats& bias, const Floats& mean, const Floats& variance,
                            float epsilon) {
    return unary(
        "batchNormalize",
        text({epsilon}) + floatsKey(scale) + "/" + floatsKey(bias) + "/" + floatsKey(mean) + "/" + floatsKey(variance),
        x,
        [=](Builder& b, TensorX* in) {
            return b.batchNormalize(in, vectorOf(scale), vectorOf(bias), vectorOf(mean), vectorOf(variance), epsilon);
        },
        countOf(scale) + countOf(bias) + countOf(mean) + countOf(variance));
}

int Program::binary(const char* name, int a, int b, TensorX* (Builder::*call)(TensorX*, TensorX*)) {
    const TensorShape& s = shapeOf(a);
    const TensorShape& t = shapeOf(b);
    const auto fits = [](int mine, int other) { return other == mine || other == 1; };
    if (!fits(s.c, t.c) || !fits(s.h, t.h) || !fits(s.w, t.w)) throw std::logic_error("extents that do not broadcast");
    return append(name, "", {a, b}, s,
                  [call](Builder& builder, const auto& in) { return (builder.*call)(in[0], in[1]); });
}

int Program::add(int a, int b) { return binary("add", a, b, &Builder::add); }

int Program::sub(int a, int b) { return binary("sub", a, b, &Builder::sub); }

int Program::multiply(int a, int b) { return binary("multiply", a, b, &Builder::multiply); }

int Program::divide(int a, int b) { return binary("divide", a, b, &Builder::divide); }

int Program::max(int a, int b) { return binary("max", a, b, &Builder::max); }

int Program::times(int x, float factor) { return factor == 1.0f ? x : multiply(x, scalar(factor)); }

int Program::plus(int x, float addend) { return addend == 0.0f ? x : add(x, scalar(addend)); }

int Program::convolve(int x, nolk::Padding padding, nolk::DimsHW stride, nolk::DimsHW dilation,
                      const KernelWeights& weights) {
    const TensorShape& in = shapeOf(x);
    const int h = in.h + padding.top + padding.bottom - ((weights.kernelH - 1) * dilation.h + 1);
    const int w = in.w + padding.left + padding.right - ((weights.kernelW - 1) * dilation.w + 1);
    if (h < 0 || w < 0) throw std::out_of_range("convolve: a kernel larger than its padded input");
    const TensorShape out{1, weights.groups * weights.outChannels, h / stride.h + 1, w / stride.w + 1, 3};
    const int step = append(
        "convolve", paddingKey(padding) + dimsKey(stride) + dimsKey(dilation) + weightsKey(weights), {x}, out,
        [=](Builder& b, const auto& i) { return b.convolve(i[0], padding, stride, dilation, weightsOf(weights)); },
        countOf(weights));
    at(step).groups = weights.groups;
    at(step).mixes = weights.inChannels != 1 || weights.outChannels != 1;
    at(step).padding = padding;
    return step;
}

int Program::deConvolve(int x, nolk::Padding padding, nolk::DimsHW stride, const KernelWeights& weights) {
    const TensorShape& in = shapeOf(x);
    const TensorShape out{1, weights.outChannels,
                          weights.kernelH + (in.h - 1) * stride.h - padding.top - padding.bottom,
                          weights.kernelW + (in.w - 1) * stride.w - padding.left - padding.right, 3};
    return append(
        "deConvolve", paddingKey(padding) + dimsKey(stride) + weightsKey(weights), {x}, out,
        [=](Builder& b, const auto& i) {
            return b.deConvolve(i[0], padding, stride, {1, 1}, weightsOf(weights));
        },
        countOf(weights));
}

int Program::fullConnect(int x, const KernelWeights& weights) {
    return append(
        "fullConnect", weightsKey(weights), {x}, {1, weights.outChannels, 1, 1, 1},
        [=](Builder& b, const auto& in) { return b.fullConnect(in[0], weightsOf(weights)); }, countOf(weights));
}

int Program::matMul(int a, int b) {
    const TensorShape& s = shapeOf(a);
    const TensorShape& t = shapeOf(b);
    if (s.c != t.c || s.w != t.h) throw std::logic_error("matrices that do not fit");
    return append("matMul", "", {a, b}, {1, s.c, s.h, t.w, 3},
                  [](Builder& builder, const auto& in) { return builder.matMul(in[0], in[1]); });
}

namespace {

TensorShape pooledShape(const TensorShape& in, nolk::DimsHW kernel, nolk::Padding p, nolk::DimsHW stride) {
    const int h = in.h + p.top + p.bottom - kernel.h, w = in.w + p.left + p.right - kernel.w;
    if (h < 0 || w < 0) throw std::out_of_range("a window larger than its padded input");
    return {1, in.c, h / stride.h + 1, w / stride.w + 1, 3};
}

}  // namespace

int Program::maxPool(int x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    const int step = append("maxPool", dimsKey(kernel) + paddingKey(padding) + dimsKey(stride), {x},
                            pooledShape(shapeOf(x), kernel, padding, stride),
                            [=](Builder& b, const auto& in) { return b.maxPool(in[0], kernel, padding, stride); });
    at(step).padding = padding;
    return step;
}

int Program::avgPool(int x, nolk::DimsHW kernel, nolk::Padding padding, nolk::DimsHW stride) {
    return append("avgPool", dimsKey(kernel) + paddingKey(padding) + dimsKey(stride), {x},
                  pooledShape(shapeOf(x), kernel, padding, stride),
                  [=](Builder& b, const auto& in) { return b.avgPool(in[0], kernel, padding, stride); });
}

int Program::pad(int x, nolk::Padding padding) {
    if (widest(padding) == 0) return x;
    const TensorShape& in = shapeOf(x);
    const TensorShape out{1, in.c, padding.top + in.h + padding.bottom, padding.left + in.w + padding.right, 3};
    return append("pad", paddingKey(padding), {x}, out,
                  [=](Builder& b, const auto& i) { return b.pad(i[0], padding); });
}

int Program::transpose(int x, nolk::Perm perm) {
    const TensorShape& in = shapeOf(x);
    const std::array<int, 4> extents{in.n, in.c, in.h, in.w};
    const auto extent = [&](int i) { return extents[static_cast<std::size_t>(perm.axes[i])]; };
    const TensorShape out{extent(0), extent(1), extent(2), extent(3), 3};
    return append("transpose", text({double(perm.axes[1]), double(perm.axes[2]), double(perm.axes[3])}), {x}, out,
                  [=](Builder& b, const auto& i) { return b.transpose(i[0], perm); });
}

// A slice takes (end - start) / step elements, and its end cannot lie beyond the extent: where the last step would be
// cut, zeros are added behind.
int Program::slice(int x, nolk::Axis axis, int start, int count, int step) {
    const int extent = extentAt(shapeOf(x), axis);
    if (start == 0 && step == 1 && count == extent) return x;
    const int end = start + count * step;
    if (end > extent) {
        if (axis == nolk::Axis::c) {
            const TensorShape s = shapeOf(x);
            const int padded = pad(view(x, {1, 1, s.c, s.h * s.w, 3}), {0, end - extent, 0, 0});
            x = view(padded, {1, end, s.h, s.w, 3});
        } else {
            x = pad(
                x, axis == nolk::Axis::h ? nolk::Padding{0, end - extent, 0, 0} : nolk::Padding{0, 0, 0, end - extent});
        }
    }
    const nolk::SlicePos pos{static_cast<int>(axis), start, end, step};
    return append("slice", text({double(pos.axis), double(start), double(end), double(step)}), {x},
                  withExtent(shapeOf(x), axis, count), [=](Builder& b, const auto& in) { return b.slice(in[0], pos); });
}

int Program::concat(std::vector<int> parts, nolk::Axis axis) {
    while (parts.size() > kMostParts) {
        std::vector<int> fewer;
        for (std::size_t i = 0; i < parts.size(); i += kMostParts)
            fewer.push_back(
                joined({parts.begin() + static_cast<std::ptrdiff_t>(i),
                        parts.begin() + static_cast<std::ptrdiff_t>(std::min(i + kMostParts, parts.size()))},
                       axis));
        parts = std::move(fewer);
    }
    return joined(parts, axis);
}

int Program::joined(const std::vector<int>& parts, nolk::Axis axis) {
    if (parts.size() == 1) return parts[0];
    int extent = 0;
    for (const int part : parts) extent += extentAt(shapeOf(part), axis);
    TensorShape shape = withExtent(shapeOf(parts[0]), axis, extent);
    return append("concat", text({double(static_cast<int>(axis))}), parts, shape, [axis](Builder& b, const auto& in) {
        std::vector<TensorX*> tensors = in;
        return b.concat(tensors.data(), static_cast<int>(tensors.size()), axis);
    });
}

int Program::softmax(int x, nolk::Axis axis) {
    return unary("softmax", text({double(static_cast<int>(axis))}), x,
                 [=](Builder& b, TensorX* in) { return b.softmax(in, axis); });
}

namespace {

// The largest divisor of a number up to its root.
int divisorOf(int number) {
    int divisor = static_cast<int>(std::sqrt(static_cast<double>(number)));
    while (number % divisor != 0) --divisor;
    return divisor;
}

}  // namespace

// nolk adds floats one after the other, which loses digits in long sums: these are taken in two steps.
int Program::reduce(int x, TensorShape shape, nolk::BasicOp op) {
    constexpr std::int64_t kLongSum = 1 << 16;
    const bool isSum = op == nolk::BasicOp::sum || op == nolk::BasicOp::mean;
    if (isSum && elementsOf(shapeOf(x)) / elementsOf(shape) > kLongSum) return reducedInSteps(x, shape, op);
    return reducedAtOnce(x, shape, op);
}

int Program::reducedInSteps(int x, TensorShape shape, nolk::BasicOp op) {
    const TensorShape from = shapeOf(x);
    TensorShape part = from;  // the last axis that is reduced becomes 1
    if (shape.w != from.w)
        part.w = 1;
    else if (shape.h != from.h)
        part.h = 1;
    if (!sameShape(part, from) && elementsOf(part) != elementsOf(shape)) return reduce(reduce(x, part, op), shape, op);
    const int extent = static_cast<int>(elementsOf(from) / elementsOf(shape)), inner = divisorOf(extent);
    if (inner == 1) return reducedAtOnce(x, shape, op);
    int before = 1, after = 1;  // of the only axis that is left
    if (shape.w != from.w)
        before = from.c * from.h;
    else if (shape.h != from.h)
        before = from.c, after = from.w;
    else
        after = from.h * from.w;
    const int sums = reducedAtOnce(view(x, {1, before * (extent / inner), inner, after, 3}),
                                   {1, before * (extent / inner), 1, after, 3}, op);
    const int sum = reducedAtOnce(view(sums, {1, before, extent / inner, after, 3}), {1, before, 1, after, 3}, op);
    return view(sum, shape);
}

int Program::reducedAtOnce(int x, TensorShape shape, nolk::BasicOp op) {
    return append("reduce", shapeKey(shape) + text({double(static_cast<int>(op))}), {x}, shape,
                  [=](Builder& b, const auto& in) { return b.reduce(in[0], shape, op); });
}

int Program::resize(int x, int h, int w, nolk::ResizeMode mode, nolk::ResizeTransMode transMode) {
    const TensorShape& in = shapeOf(x);
    if (in.h == h && in.w == w) return x;
    const TensorShape out{1, in.c, h, w, 3};
    return append("resize", shapeKey(out) + text({double(static_cast<int>(mode)), double(static_cast<int>(transMode))}),
                  {x}, out, [=](Builder& b, const auto& i) { return b.resize(i[0], out, mode, transMode); });
}

int Program::lstm(int x, const LstmArrays& arrays) {
    const int directions = arrays.direction == nolk::Direction::both ? 2 : 1;
    const TensorShape& in = shapeOf(x);
    const TensorShape out{1, 1, in.h, directions * arrays.hiddenSize, 3};
    const std::string key = text({double(static_cast<int>(arrays.direction)), double(arrays.hiddenSize)}) +
                            floatsKey(arrays.inputWeights) + floatsKey(arrays.recurrentWeights) +
                            floatsKey(arrays.bias);
    const auto call = [=](Builder& b, const auto& i) {
        return b.lstm(i[0],
                      {arrays.direction, directions, arrays.inputSize, arrays.hiddenSize, writable(arrays.inputWeights),
                       writable(arrays.recurrentWeights), writable(arrays.bias), arrays.bias != nullptr});
    };
    return append("lstm", key, {x}, out, call,
                  countOf(arrays.inputWeights) + countOf(arrays.recurrentWeights) + countOf(arrays.bias));
}

int Program::copy(int x) {
    return append("copy", std::to_string(steps_.size()), {x}, {1, shapeOf(x).c, shapeOf(x).h, shapeOf(x).w, 3},
                  [](Builder& b, const auto& in) { return b.transpose(in[0], nolk::Perm{}); });
}

std::vector<char> Program::usedSteps(const std::vector<int>& outputs) const {
    std::vector<char> used(steps_.size(), 0);
    std::vector<int> pending = outputs;
    while (!pending.empty()) {
        const auto step = static_cast<std::size_t>(pending.back());
        pending.pop_back();
        if (used[step] != 0) continue;
        used[step] = 1;
        pending.insert(pending.end(), steps_[step].inputs.begin(), steps_[step].inputs.end());
    }
    return used;
}

// The library's fusion and its reshape without a copy make conditions that a recorded graph may break:
//   a reshape is its input's memory, which nobody else may use, and which is no constant;
//   a padding in front of a max pooling is absorbed, and then its zeros take no part in the maximum;
//   a batch normalisation in front of a convolution with groups is absorbed with the output's channels as indices.
void Program::mend(const std::vector<int>& outputs) {
    const std::vector<char> used = usedSteps(outputs);
    std::vector<int> uses(steps_.size(), 0);
    for (std::size_t i = 0; i < used.size(); ++i)
        if (used[i] != 0)
            for (const int in : steps_[i].inputs) ++uses[static_cast<std::size_t>(in)];
    for (const int output : outputs) ++uses[static_cast<std::size_t>(output)];
    const std::size_t count = steps_.size();
    for (std::size_t i = 0; i < count; ++i) {
        if (used[i] == 0 || steps_[i].inputs.size() != 1) continue;
        const int in = steps_[i].inputs[0];
        const std::string before = at(in).name;
        const bool sharesMemory =
            steps_[i].name == "reshape" && (uses[static_cast<std::size_t>(in)] > 1 || before == "constTensor");
        const bool losesZeros = steps_[i].name == "maxPool" && before == "pad";
        const bool losesChannels = steps_[i].name == "convolve" && before == "batchNormalize" && steps_[i].groups > 1 &&
                                   steps_[i].mixes && widest(steps_[i].padding) == 0;
        if (!sharesMemory && !losesZeros && !losesChannels) continue;
        // A copy for each reshape: two that share one would be its two uses.
        origin_ = steps_[i].origin;
        const int copied = copy(in);
        steps_[i].inputs[0] = copied;
    }
}

std::vector<unsigned char> Program::write(const std::vector<int>& outputs, const nolk::ModelFileOptions& options) {
    if (!written_.empty()) throw std::logic_error("a program is written once");
    mend(outputs);
    const std::vector<char> used = usedSteps(outputs);
    nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
    std::vector<TensorX*> tensors(steps_.size(), nullptr);
    // Copies stand behind all others, but come before the step that they are for.
    const std::function<TensorX*(int)> tensorOf = [&](int step) {
        TensorX*& tensor = tensors[static_cast<std::size_t>(step)];
        if (tensor) return tensor;
        std::vector<TensorX*> inputs;
        for (const int in : at(step).inputs) inputs.push_back(tensorOf(in));
        tensor = at(step).record(*writer, inputs);
        at(step).record = nullptr;
        const TensorShape made = writer->shapeOf(tensor);
        if (elementsOf(made) != elementsOf(at(step).shape) || made.c != shapeOf(step).c || made.h != shapeOf(step).h)
            throw std::logic_error(at(step).name + ": the result has other extents than expected");
        written_.push_back(at(step).name);
        return tensor;
    };
    try {
        for (std::size_t i = 0; i < steps_.size(); ++i)
            if (used[i] != 0) tensorOf(static_cast<int>(i));
        std::vector<TensorX*> results;
        for (const int output : outputs) results.push_back(tensorOf(output));
        writer->build(results.data(), static_cast<int>(results.size()));
    } catch (const std::out_of_range& error) {
        throw NotWritable(error.what());
    }
    return writer->bytes();
}

// A step alone in a file of its own, with inputs of the right shapes: then one that cannot be written hides no other.
std::string Program::hindranceOf(const Step& step, const nolk::ModelFileOptions& options) const {
    nolk::Owned<nolk::ModelWriter> writer = nolk::newModelWriter(options);
    std::vector<TensorX*> inputs;
    for (const int in : step.inputs) {
        try {
            inputs.push_back(writer->input(shapeOf(in)));
        } catch (const std::out_of_range&) {
            // Not every tensor can be an input. Then the record's own numbers are looked at all the same.
            inputs.push_back(writer->input({1, 1, 1, 1, 3}));
        }
    }
    try {
        step.record(*writer, inputs);
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "";
}

std::vector<Hindrance> Program::hindrances(const std::vector<int>& ends, const nolk::ModelFileOptions& options) const {
    const std::vector<char> used = usedSteps(ends);
    std::vector<Hindrance> result;
    std::size_t records = ends.size();
    for (std::size_t i = 0; i < steps_.size(); ++i) {
        if (used[i] == 0) continue;
        ++records;
        if (!steps_[i].record) continue;  // written before another one could not be
        const std::string why = hindranceOf(steps_[i], options);
        const bool isKnown = std::any_of(result.begin(), result.end(), [&](const Hindrance& h) {
            return h.why == why && h.origin.node == steps_[i].origin.node;
        });
        constexpr int kWidestPadding = 255;
        const bool hasWidePadding = widest(steps_[i].padding) > kWidestPadding;
        if (!why.empty() && !isKnown) result.push_back({steps_[i].origin, why, hasWidePadding});
    }
    constexpr std::size_t kMostRecords = 32767;
    if (records > kMostRecords)
        result.push_back({{},
                          "the network becomes " + std::to_string(records) + " operations; a file holds at most " +
                              std::to_string(kMostRecords),
                          false});
    return result;
}

}  // namespace convert
