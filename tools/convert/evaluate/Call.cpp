#include "convert/evaluate/Call.h"

#include <cstdio>

#include "convert/onnx/text.h"

namespace convert {

namespace {

std::string describeCount(double count) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2g", count);
    return text;
}

}  // namespace

void Call::takeWork(double multiplyAdds) const {
    need(multiplyAdds <= workLeft, "needs too long to compute, with " + describeCount(multiplyAdds) + " multiply-adds");
    workLeft -= multiplyAdds;
}

bool Call::wants(std::size_t output) const {
    return output < outputCount() && !node.output(static_cast<int>(output)).empty();
}

const Value& Call::in(std::size_t input) const {
    need(has(input), "input " + std::to_string(input + 1) + " is missing", kAgainstOnnx);
    return *inputs[input];
}

const Array& Call::array(std::size_t input, const char* what) const {
    const Value& value = in(input);
    const std::string name = *what != '\0' ? std::string(what) : "input " + std::to_string(input + 1);
    need(value.known != nullptr, name + " depends on the network's input",
         "export with fixed shapes, or without this computation");
    return *value.known;
}

double Call::scalar(std::size_t input, const char* what) const {
    const Array& values = array(input, what);
    need(values.count() == 1, std::string(what) + " has " + std::to_string(values.count()) + " values instead of one",
         kAgainstOnnx);
    return values.isFloat() ? values.floats()[0] : static_cast<double>(values.ints()[0]);
}

const onnx::AttributeProto* Call::find(const char* name) const {
    for (const auto& attribute : node.attribute())
        if (attribute.name() == name) return &attribute;
    return nullptr;
}

std::int64_t Call::intAttribute(const char* name, std::int64_t otherwise) const {
    const auto* attribute = find(name);
    return attribute != nullptr ? attribute->i() : otherwise;
}

double Call::floatAttribute(const char* name, double otherwise) const {
    const auto* attribute = find(name);
    return attribute != nullptr ? attribute->f() : otherwise;
}

std::string Call::stringAttribute(const char* name, const std::string& otherwise) const {
    const auto* attribute = find(name);
    return attribute != nullptr ? attribute->s() : otherwise;
}

std::optional<std::vector<std::int64_t>> Call::intsAttribute(const char* name) const {
    const auto* attribute = find(name);
    if (attribute == nullptr) return std::nullopt;
    return std::vector<std::int64_t>(attribute->ints().begin(), attribute->ints().end());
}

std::optional<std::vector<std::int64_t>> Call::intsOf(const char* attribute, std::size_t input) const {
    if (has(input)) return ints(input, attribute);
    return intsAttribute(attribute);
}

int Call::axis(const char* attribute, std::int64_t otherwise, int rank) const {
    return wrapAxis(intAttribute(attribute, otherwise), rank);
}

int wrapAxis(std::int64_t axis, int rank) {
    need(axis >= -rank && axis < rank,
         "axis " + std::to_string(axis) + " is outside a tensor of " + std::to_string(rank) + " dimensions",
         kAgainstOnnx);
    return static_cast<int>(axis < 0 ? axis + rank : axis);
}

void refuse(const std::string& text, const std::string& advice) { throw OnnxError(text, advice); }

}  // namespace convert
