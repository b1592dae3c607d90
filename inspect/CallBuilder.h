// A builder that forwards all its methods to one function, so that code which is the same for all operations is written
// once.
//   class Printer final : public CallBuilder<nolk::RunnerBuilder> {
//       nolk::TensorX* record(const Call& call) override { std::puts(call.operation.name); ... }
// Interface is nolk::RunnerBuilder or derives from it. A method without a row in the table of operations does not
// compile, nor does a builder without all methods.
#pragma once

#include "model/operations.h"

template <typename Interface>
class CallBuilder : public Interface {
protected:
    using TensorX = nolk::TensorX;
    using Builder = nolk::RunnerBuilder;

    CallBuilder() = default;
    ~CallBuilder() = default;

    // Returns the result of a call. Inputs may be null.
    virtual TensorX* record(const Call& call) = 0;

public:
    TensorX* input(nolk::TensorShape s) override { return make<&Builder::input>({}, s); }
    TensorX* constTensor(nolk::Tensor* t) override { return t ? make<&operation::constTensor>({}, *t) : nullptr; }
    TensorX* convolve(TensorX* x, nolk::Padding p, nolk::DimsHW s, nolk::DimsHW d, nolk::Weights w) override {
        return make<&Builder::convolve>({x}, p, s, d, w);
    }
    TensorX* pad(TensorX* x, nolk::Padding p) override { return make<&Builder::pad>({x}, p); }
    TensorX* transpose(TensorX* x, nolk::Perm p) override { return make<&Builder::transpose>({x}, p); }
    TensorX* slice(TensorX* x, nolk::SlicePos p) override { return make<&Builder::slice>({x}, p); }
    TensorX* fullConnect(TensorX* x, nolk::Weights w) override {
        return make<&operation::fullConnect>({x}, SharedWeights{w});
    }
    TensorX* batchNormalize(TensorX* x, nolk::Vector scale, nolk::Vector bias, nolk::Vector mean, nolk::Vector variance,
                            float e) override {
        return make<&Builder::batchNormalize>({x}, scale, bias, mean, variance, e);
    }
    TensorX* maxPool(TensorX* x, nolk::DimsHW k, nolk::Padding p, nolk::DimsHW s) override {
        return make<&Builder::maxPool>({x}, k, p, s);
    }
    TensorX* avgPool(TensorX* x, nolk::DimsHW k, nolk::Padding p, nolk::DimsHW s) override {
        return make<&Builder::avgPool>({x}, k, p, s);
    }
    TensorX* relu(TensorX* x) override { return make<&Builder::relu>({x}); }
    TensorX* softmax(TensorX* x, nolk::Axis a) override { return make<&Builder::softmax>({x}, a); }
    TensorX* concat(TensorX** inputs, int count, nolk::Axis a) override {
        return make<&operation::concat>({inputs, inputs && count > 0 ? inputs + count : inputs}, a);
    }
    TensorX* add(TensorX* a, TensorX* b) override { return make<&Builder::add>({a, b}); }
    TensorX* sub(TensorX* a, TensorX* b) override { return make<&Builder::sub>({a, b}); }
    TensorX* sigmoid(TensorX* x) override { return make<&Builder::sigmoid>({x}); }
    TensorX* reshape(TensorX* x, nolk::TensorShape s, nolk::TensorLayout l) override {
        return make<&Builder::reshape>({x}, s, l);
    }
    TensorX* multiply(TensorX* a, TensorX* b) override { return make<&Builder::multiply>({a, b}); }
    TensorX* exp(TensorX* x) override { return make<&Builder::exp>({x}); }
    TensorX* divide(TensorX* a, TensorX* b) override { return make<&Builder::divide>({a, b}); }
    TensorX* reduce(TensorX* x, nolk::TensorShape s, nolk::BasicOp o) override {
        return make<&Builder::reduce>({x}, s, o);
    }
    TensorX* l2normalize(TensorX* x) override { return make<&Builder::l2normalize>({x}); }
    TensorX* clip(TensorX* x, float min, float max) override { return make<&Builder::clip>({x}, min, max); }
    TensorX* lstm(TensorX* x, nolk::LstmWeights w) override { return make<&Builder::lstm>({x}, w); }
    TensorX* hardSigmoid(TensorX* x, float a, float b) override { return make<&Builder::hardSigmoid>({x}, a, b); }
    TensorX* max(TensorX* a, TensorX* b) override { return make<&Builder::max>({a, b}); }
    TensorX* instanceNormalization(TensorX* x, float e) override {
        return make<operation::kInstanceNormalization>({x}, e);
    }
    TensorX* instanceNormalization(TensorX* x, nolk::Vector scale, nolk::Vector bias, float e) override {
        return make<operation::kScaledInstanceNormalization>({x}, scale, bias, e);
    }
    TensorX* resize(TensorX* x, nolk::TensorShape s, nolk::ResizeMode m, nolk::ResizeTransMode t) override {
        return make<&Builder::resize>({x}, s, m, t);
    }
    TensorX* abs(TensorX* x) override { return make<&Builder::abs>({x}); }
    TensorX* leakyRelu(TensorX* x, float a) override { return make<&Builder::leakyRelu>({x}, a); }
    TensorX* tanh(TensorX* x) override { return make<&Builder::tanh>({x}); }
    TensorX* deConvolve(TensorX* x, nolk::Padding p, nolk::DimsHW s, nolk::DimsHW d, nolk::Weights w) override {
        return make<&Builder::deConvolve>({x}, p, s, d, w);
    }
    TensorX* prelu(TensorX* x, float* slopes, int count) override {
        return make<&operation::prelu>({x}, nolk::Vector{count, slopes});
    }
    TensorX* matMul(TensorX* a, TensorX* b) override { return make<&Builder::matMul>({a, b}); }

private:
    template <auto function, typename... Arguments>
    TensorX* make(std::vector<TensorX*> inputs, Arguments... arguments) {
        static_assert(sizeof...(Arguments) == operationOf<function>().fieldCount);
        return record({operationOf<function>(), std::move(inputs), {Argument(arguments)...}});
    }
};
