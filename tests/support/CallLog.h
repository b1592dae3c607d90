// A builder that only takes down what it is asked, one line a call, for tests of what drives builders.
//   CallLog log;  log.relu(log.input({1, 2, 3, 3, 3}));  // log.lines: "#1 = input [1 2 3 3 dims 3]", "#2 = relu #1"
// Tensors are numbered from 1 in the order of the calls; their pointers must not be followed. build returns a runner
// that belongs to the log, or throws `thrown` as std::runtime_error where that is not empty.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <initializer_list>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

class CallLog final : public nolk::RunnerBuilder {
public:
    using TensorX = nolk::TensorX;

    std::vector<std::string> lines;
    std::string thrown;
    nolk::Runner* runner() { return &runner_; }

    TensorX* input(nolk::TensorShape shape) override { return log("input", shape); }
    TensorX* constTensor(nolk::Tensor* t) override {
        return log("constTensor", t->shape, floats(t->data, {t->shape.n, t->shape.c, t->shape.h, t->shape.w}));
    }
    TensorX* convolve(TensorX* x, nolk::Padding p, nolk::DimsHW s, nolk::DimsHW d, nolk::Weights w) override {
        return log("convolve", x, p, s, d, w);
    }
    TensorX* pad(TensorX* x, nolk::Padding p) override { return log("pad", x, p); }
    TensorX* transpose(TensorX* x, nolk::Perm p) override { return log("transpose", x, p); }
    TensorX* slice(TensorX* x, nolk::SlicePos p) override { return log("slice", x, p); }
    TensorX* fullConnect(TensorX* x, nolk::Weights w) override { return log("fullConnect", x, w); }
    TensorX* batchNormalize(TensorX* x, nolk::Vector a, nolk::Vector b, nolk::Vector c, nolk::Vector d,
                            float e) override {
        return log("batchNormalize", x, a, b, c, d, e);
    }
    TensorX* maxPool(TensorX* x, nolk::DimsHW k, nolk::Padding p, nolk::DimsHW s) override {
        return log("maxPool", x, k, p, s);
    }
    TensorX* avgPool(TensorX* x, nolk::DimsHW k, nolk::Padding p, nolk::DimsHW s) override {
        return log("avgPool", x, k, p, s);
    }
    TensorX* relu(TensorX* x) override { return log("relu", x); }
    TensorX* softmax(TensorX* x, nolk::Axis a) override { return log("softmax", x, static_cast<int>(a)); }
    TensorX* concat(TensorX** inputs, int count, nolk::Axis a) override {
        std::string names = inputs ? "" : "null array";
        for (int i = 0; i < count; ++i) names += (i ? " " : "") + name(inputs[i]);
        return log("concat", "(" + names + ")", static_cast<int>(a));
    }
    TensorX* add(TensorX* a, TensorX* b) override { return log("add", a, b); }
    TensorX* sub(TensorX* a, TensorX* b) override { return log("sub", a, b); }
    TensorX* sigmoid(TensorX* x) override { return log("sigmoid", x); }
    TensorX* reshape(TensorX* x, nolk::TensorShape s, nolk::TensorLayout l) override {
        return log("reshape", x, s, static_cast<int>(l));
    }
    TensorX* multiply(TensorX* a, TensorX* b) override { return log("multiply", a, b); }
    TensorX* exp(TensorX* x) override { return log("exp", x); }
    TensorX* divide(TensorX* a, TensorX* b) override { return log("divide", a, b); }
    TensorX* reduce(TensorX* x, nolk::TensorShape s, nolk::BasicOp o) override {
        return log("reduce", x, s, static_cast<int>(o));
    }
    TensorX* l2normalize(TensorX* x) override { return log("l2normalize", x); }
    TensorX* clip(TensorX* x, float a, float b) override { return log("clip", x, a, b); }
    TensorX* lstm(TensorX* x, nolk::LstmWeights w) override { return log("lstm", x, w); }
    TensorX* hardSigmoid(TensorX* x, float a, float b) override { return log("hardSigmoid", x, a, b); }
    TensorX* max(TensorX* a, TensorX* b) override { return log("max", a, b); }
    TensorX* instanceNormalization(TensorX* x, float e) override { return log("instanceNormalization", x, e); }
    TensorX* instanceNormalization(TensorX* x, nolk::Vector a, nolk::Vector b, float e) override {
        return log("instanceNormalization", x, a, b, e);
    }
    TensorX* resize(TensorX* x, nolk::TensorShape s, nolk::ResizeMode m, nolk::ResizeTransMode t) override {
        return log("resize", x, s, static_cast<int>(m), static_cast<int>(t));
    }
    TensorX* abs(TensorX* x) override { return log("abs", x); }
    TensorX* leakyRelu(TensorX* x, float a) override { return log("leakyRelu", x, a); }
    TensorX* tanh(TensorX* x) override { return log("tanh", x); }
    TensorX* deConvolve(TensorX* x, nolk::Padding p, nolk::DimsHW s, nolk::DimsHW d, nolk::Weights w) override {
        return log("deConvolve", x, p, s, d, w);
    }
    TensorX* prelu(TensorX* x, float* slopes, int count) override { return log("prelu", x, floats(slopes, {count})); }
    TensorX* matMul(TensorX* a, TensorX* b) override { return log("matMul", a, b); }
    nolk::TensorShape shapeOf(TensorX*) override { return {}; }

    nolk::Runner* build(TensorX** outputs, int count) override {
        std::string line = "build";
        for (int i = 0; i < count; ++i) line += " " + name(outputs[i]);
        lines.push_back(line);
        if (!thrown.empty()) throw std::runtime_error(thrown);
        return runner();
    }
    void destroy() override {}

private:
    struct NoRunner final : nolk::Runner {
        bool run(nolk::Tensor*, int, nolk::Tensor*, int) override { return false; }
        void destroy() override {}
    };

    template <typename... Args>
    TensorX* log(const char* operation, const Args&... args) {
        std::ostringstream line;
        line << "#" << ++count_ << " = " << operation;
        ((line << " ", put(line, args)), ...);
        lines.push_back(line.str());
        return reinterpret_cast<TensorX*>(static_cast<std::uintptr_t>(count_));
    }

    static std::string name(TensorX* x) {
        return x ? "#" + std::to_string(reinterpret_cast<std::uintptr_t>(x)) : "null";
    }

    static std::string floats(const float* values, std::initializer_list<int> factors) {
        if (!values) return "none";
        std::int64_t count = 1;
        for (const int factor : factors) count *= factor;
        std::ostringstream text;
        if (count > 1000) return std::to_string(count) + " floats";
        for (std::int64_t i = 0; i < count; ++i) text << (i ? " " : "{") << values[i];
        return count > 0 ? text.str() + "}" : "{}";
    }

    static void put(std::ostream& out, int value) { out << value; }
    static void put(std::ostream& out, float value) { out << value; }
    static void put(std::ostream& out, const std::string& text) { out << text; }
    static void put(std::ostream& out, TensorX* x) { out << name(x); }
    static void put(std::ostream& out, nolk::TensorShape s) {
        out << "[" << s.n << " " << s.c << " " << s.h << " " << s.w << " dims " << s.dims << "]";
    }
    static void put(std::ostream& out, nolk::Padding p) {
        out << "(top " << p.top << " bottom " << p.bottom << " left " << p.left << " right " << p.right << ")";
    }
    static void put(std::ostream& out, nolk::DimsHW d) { out << d.h << "x" << d.w; }
    static void put(std::ostream& out, nolk::Perm p) {
        out << "(" << p.axes[0] << " " << p.axes[1] << " " << p.axes[2] << " " << p.axes[3] << ")";
    }
    static void put(std::ostream& out, nolk::SlicePos p) {
        out << "(axis " << p.axis << " start " << p.start << " end " << p.end << " step " << p.step << ")";
    }
    static void put(std::ostream& out, nolk::Vector v) { out << floats(v.data, {v.count}); }
    static void put(std::ostream& out, const nolk::Weights& w) {
        const int copies = w.shared ? 1 : w.groups;
        out << (w.shared ? "shared " : "") << w.groups << "x" << w.outChannels << "x" << w.inChannels << "x"
            << w.kernelH << "x" << w.kernelW << " "
            << floats(w.weight, {copies, w.outChannels, w.inChannels, w.kernelH, w.kernelW}) << " bias "
            << floats(w.bias, {copies, w.outChannels});
    }
    static void put(std::ostream& out, const nolk::LstmWeights& w) {
        out << "direction " << static_cast<int>(w.direction) << " D " << w.numDirections << " I " << w.inputSize
            << " H " << w.hiddenSize << " " << floats(w.inputWeights, {w.numDirections, 4, w.hiddenSize, w.inputSize})
            << " " << floats(w.recurrentWeights, {w.numDirections, 4, w.hiddenSize, w.hiddenSize}) << " bias "
            << floats(w.bias, {w.numDirections, 8, w.hiddenSize}) << (w.splitBias ? "" : " not split");
    }

    NoRunner runner_;
    int count_ = 0;
};
