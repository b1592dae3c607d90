// One node whose meaning is wanted: its attributes, its inputs, and what they have to be.
//   const std::int64_t axis = call.axis("axis", 1, call.rank(0));
//   const std::vector<std::int64_t>& shape = call.ints(1, "shape");   // throws where the values are not known
// Errors are OnnxError without the node's name, which the caller puts in front.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "convert/evaluate/evaluateNode.h"

namespace convert {

struct Call {
    const onnx::NodeProto& node;
    int opset;
    const std::vector<const Value*>& inputs;
    double& workLeft;  // multiply-adds

    // Throws where an operator would multiply and add more often than can be waited for.
    void takeWork(double multiplyAdds) const;

    std::size_t inputCount() const { return inputs.size(); }
    std::size_t outputCount() const { return static_cast<std::size_t>(node.output_size()); }
    bool has(std::size_t input) const { return input < inputs.size() && inputs[input] != nullptr; }
    bool wants(std::size_t output) const;  // whether the node names this output

    const Value& in(std::size_t input) const;  // throws for one that is missing
    const Dims& dims(std::size_t input) const { return in(input).dims; }
    int rank(std::size_t input) const { return static_cast<int>(dims(input).size()); }

    // Values. `what` is the input's name, for the error where they are not known before a run.
    const Array& array(std::size_t input, const char* what = "") const;
    const std::vector<float>& floats(std::size_t input) const { return array(input).floats(); }
    const std::vector<std::int64_t>& ints(std::size_t input, const char* what) const {
        return array(input, what).ints();
    }
    double scalar(std::size_t input, const char* what) const;  // a float or integer in an array of one element

    bool hasAttribute(const char* name) const { return find(name) != nullptr; }
    std::int64_t intAttribute(const char* name, std::int64_t otherwise) const;
    double floatAttribute(const char* name, double otherwise) const;
    std::string stringAttribute(const char* name, const std::string& otherwise) const;
    std::optional<std::vector<std::int64_t>> intsAttribute(const char* name) const;
    const onnx::AttributeProto* find(const char* name) const;

    // Integers that are an attribute in old opsets and an input in newer ones. Nothing when neither is there.
    std::optional<std::vector<std::int64_t>> intsOf(const char* attribute, std::size_t input) const;

    // An axis of a tensor of this rank: negative values count from the end. Throws for one that is outside.
    int axis(const char* attribute, std::int64_t otherwise, int rank) const;
};

// An axis from 0 to rank - 1 for one from -rank to rank - 1.
int wrapAxis(std::int64_t axis, int rank);

// Throws OnnxError. Without advice, the shapes are taken for the reason.
[[noreturn]] void refuse(const std::string& text, const std::string& advice = {});

// Throws OnnxError with the text unless the condition holds.
inline void need(bool condition, const std::string& text, const char* advice = "") {
    if (!condition) refuse(text, advice);
}

}  // namespace convert
