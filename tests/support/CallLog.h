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

#include "inspect/CallBuilder.h"

class CallLog final : public CallBuilder<nolk::RunnerBuilder> {
public:
    std::vector<std::string> lines;
    std::string thrown;
    nolk::Runner* runner() { return &runner_; }

    TensorX* concat(TensorX** inputs, int count, nolk::Axis axis) override {
        isNullArray_ = !inputs;
        return CallBuilder::concat(inputs, count, axis);
    }
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

    TensorX* record(const Call& call) override {
        std::ostringstream line;
        line << "#" << ++count_ << " = " << call.operation.name;
        const bool isList = call.operation.inputCount == kListOfInputs;
        if (isList) line << (isNullArray_ ? " (null array" : " (");
        for (std::size_t i = 0; i < call.inputs.size(); ++i)
            line << (isList && i == 0 ? "" : " ") << name(call.inputs[i]);
        if (isList) line << ")";
        for (const Argument& argument : call.arguments) {
            line << " ";
            std::visit([&line](const auto& value) { put(line, value); }, argument);
        }
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

    template <typename Enum>
    static void put(std::ostream& out, Enum value) {
        out << static_cast<int>(value);
    }
    static void put(std::ostream& out, float value) { out << value; }
    static void put(std::ostream& out, const nolk::Tensor& t) {
        put(out, t.shape);
        out << " " << floats(t.data, {t.shape.n, t.shape.c, t.shape.h, t.shape.w});
    }
    static void put(std::ostream& out, const SharedWeights& w) { put(out, w.weights); }
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
    bool isNullArray_ = false;
};
