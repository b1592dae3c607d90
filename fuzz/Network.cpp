#include "fuzz/Network.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <type_traits>
#include <utility>
#include <variant>

#include "model/operations.h"

namespace {

constexpr int kMaxOperations = 12;
constexpr std::int64_t kMaxFloats = 1 << 12;  // of one array

std::int64_t product(std::initializer_list<int> factors) {
    std::int64_t count = 1;
    for (const int factor : factors) count = std::min(count * std::max(factor, 0), kMaxFloats + 1);
    return count;
}

template <typename... Types>
Argument makeKind(std::size_t kind, Network& network, const nolk::TensorShape& x, const std::variant<Types...>*) {
    using Maker = Argument (*)(Network&, const nolk::TensorShape&);
    static constexpr Maker kMakers[] = {
        [](Network& n, const nolk::TensorShape& s) -> Argument { return n.make<Types>(s); }...};
    return kMakers[kind](network, x);
}

}  // namespace

std::vector<nolk::TensorX*> Network::record(nolk::RunnerBuilder& builder) {
    tensors_.push_back(builder.input(make<nolk::TensorShape>({})));
    for (int i = 0; i < kMaxOperations && !choose_.isEmpty(); ++i) recordOperation(builder);
    std::vector<nolk::TensorX*> outputs = {tensors_.back()};
    while (choose_.oneIn(4)) outputs.push_back(pick());
    return outputs;
}

// The latest tensor half of the time, so that long chains come about.
nolk::TensorX* Network::pick() {
    const int count = static_cast<int>(tensors_.size());
    return choose_.below(2) == 0 ? tensors_.back() : tensors_[static_cast<std::size_t>(choose_.below(count))];
}

int Network::small(int most) { return choose_.oneIn(40) ? choose_.edge() : choose_.below(most) + 1; }

// From 1 to most, or whole blocks of 16, for which the fast back end has code of its own.
int Network::channels(int most) {
    if (choose_.oneIn(40)) return choose_.edge();
    const int number = choose_.below(most + 2) + 1;
    return number > most ? 16 * (number - most) : number;
}

// Never null. A count that is too large for a small network makes the operation be left out.
float* Network::floats(std::int64_t count) {
    fits_ = fits_ && count <= kMaxFloats;
    const auto length = static_cast<std::size_t>(fits_ ? std::max<std::int64_t>(count, 0) : 0);
    arrays_.push_back(std::make_unique<float[]>(length));
    const float first = choose_.real(), step = choose_.real();
    for (std::size_t i = 0; i < length; ++i) arrays_.back()[i] = first + step * static_cast<float>(i % 7);
    return arrays_.back().get();
}

void Network::recordOperation(nolk::RunnerBuilder& builder) {
    const Operation& operation = operation::kTable[choose_.below(static_cast<int>(std::size(operation::kTable)))];
    if (!operation.call) return;
    Call call{operation, {}, {}};
    const int inputs = operation.inputCount == kListOfInputs ? choose_.below(3) + 1 : operation.inputCount;
    for (int i = 0; i < inputs; ++i) call.inputs.push_back(pick());
    const nolk::TensorShape x = call.inputs.empty() ? nolk::TensorShape{} : builder.shapeOf(call.inputs.front());
    fits_ = true;
    for (std::size_t i = 0; i < operation.fieldCount; ++i)
        call.arguments.push_back(makeKind(operation.fields[i].kind, *this, x, static_cast<const Argument*>(nullptr)));
    if (!fits_) return;
    if (nolk::TensorX* const made = operation.call(builder, call)) tensors_.push_back(made);
}

template <typename T>
T Network::make(const nolk::TensorShape& x) {
    if constexpr (std::is_same_v<T, float>) {
        return choose_.real();
    } else if constexpr (std::is_same_v<T, nolk::ResizeMode>) {
        return static_cast<T>(choose_.below(2) + 1);  // any other ends the process, as nolk.h says
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<T>(choose_.oneIn(32) ? choose_.edge() : choose_.below(4));
    } else if constexpr (std::is_same_v<T, nolk::DimsHW>) {
        const int h = small(3);
        return {h, small(3)};
    } else if constexpr (std::is_same_v<T, nolk::Padding>) {
        int amounts[4];
        for (int& amount : amounts) amount = std::max(small(3) - 1, 0);
        return {amounts[0], amounts[1], amounts[2], amounts[3]};
    } else if constexpr (std::is_same_v<T, nolk::Perm>) {
        nolk::Perm perm;
        for (int i = 3; i > 0; --i) std::swap(perm.axes[i], perm.axes[choose_.below(i + 1)]);
        if (choose_.oneIn(16)) perm.axes[choose_.below(4)] = choose_.edge();
        return perm;
    } else if constexpr (std::is_same_v<T, nolk::SlicePos>) {
        const int axis = choose_.below(8) - 4, start = small(4) - 1, end = small(8);
        return {axis, start, end, small(3)};
    } else if constexpr (std::is_same_v<T, nolk::TensorShape>) {
        nolk::TensorShape shape = x;
        const int way = x.n == 0 ? 0 : choose_.below(5);
        if (way == 0) shape = {batch_, channels(6), small(6), small(6), 3};
        if (way == 1) shape = {x.n, x.c * x.h * x.w, 1, 1, 1};  // wraps for extents at the edge
        if (way == 2) std::swap(shape.c, choose_.below(2) == 0 ? shape.h : shape.w);
        if (way == 3) shape.h = small(8), shape.w = small(8);
        if (way == 4) {
            const int ones = choose_.below(8);
            if (ones & 1) shape.c = 1;
            if (ones & 2) shape.h = 1;
            if (ones & 4) shape.w = 1;
        }
        if (choose_.oneIn(16)) shape.n = small(3), shape.dims = choose_.below(4);
        return shape;
    } else if constexpr (std::is_same_v<T, nolk::Tensor>) {
        const nolk::TensorShape shape = make<nolk::TensorShape>(x);
        return {shape, floats(product({shape.n, shape.c, shape.h, shape.w}))};
    } else if constexpr (std::is_same_v<T, nolk::Vector>) {
        const int count = choose_.oneIn(16) ? small(8) : x.c;
        return {count, floats(count)};
    } else if constexpr (std::is_same_v<T, nolk::LstmWeights>) {
        nolk::LstmWeights w;
        w.direction = static_cast<nolk::Direction>(choose_.below(3));
        w.numDirections = w.direction == nolk::Direction::both ? 2 : 1;
        w.inputSize = choose_.oneIn(16) ? small(8) : x.w;
        w.hiddenSize = small(4);
        w.inputWeights = floats(product({w.numDirections, 4, w.hiddenSize, w.inputSize}));
        w.recurrentWeights = floats(product({w.numDirections, 4, w.hiddenSize, w.hiddenSize}));
        if (choose_.below(2) == 0) w.bias = floats(product({w.numDirections, 8, w.hiddenSize}));
        w.splitBias = !choose_.oneIn(4);
        return w;
    } else if constexpr (std::is_same_v<T, SharedWeights>) {
        return {weights(x, true)};
    } else {
        static_assert(std::is_same_v<T, nolk::Weights>);
        return weights(x, false);
    }
}

nolk::Weights Network::weights(const nolk::TensorShape& x, bool shared) {
    nolk::Weights w;
    w.groups = choose_.below(3) == 2 ? x.c : small(2);
    w.outChannels = channels(4);
    w.inChannels = choose_.oneIn(16) ? small(4) : x.c / std::max(w.groups, 1);
    w.kernelH = small(3);
    w.kernelW = small(3);
    w.shared = shared;
    const int copies = shared ? 1 : w.groups;
    w.weight = floats(product({copies, w.outChannels, w.inChannels, w.kernelH, w.kernelW}));
    if (choose_.below(2) == 0) w.bias = floats(product({copies, w.outChannels}));
    return w;
}
