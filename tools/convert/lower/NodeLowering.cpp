#include "convert/lower/NodeLowering.h"

#include <algorithm>

#include "convert/onnx/text.h"

namespace convert {

Placed with(Placed x, int step) {
    x.step = step;
    return x;
}

Floats floatsOf(const Array& array) {
    if (array.isFloat()) return Floats(std::make_shared<const Array>(array), &array.floats());
    const auto& values = array.ints();
    return std::make_shared<const std::vector<float>>(values.begin(), values.end());
}

int asInt(std::int64_t value) {
    if (value > INT32_MAX || value < INT32_MIN)
        throw std::out_of_range("the number " + std::to_string(value) + " is too large");
    return static_cast<int>(value);
}

namespace {

// The extents of a step for dims, leading ones away: the last three axes are c, h and w, further ones join c.
nolk::TensorShape shapeFor(const Dims& dims) {
    std::int64_t extents[3] = {1, 1, 1};
    std::size_t at = 3;
    for (auto extent = dims.rbegin(); extent != dims.rend(); ++extent) {
        if (at > 0) --at;
        extents[at] *= *extent;
    }
    return {1, asInt(extents[0]), asInt(extents[1]), asInt(extents[2]), 3};
}

}  // namespace

Placed constantStep(Program& program, const Array& array) {
    return placed(program.constant(shapeFor(array.dims()), floatsOf(array)), array.dims());
}

int NodeLowering::inputType(std::size_t input) const {
    return graph_.tensors[static_cast<std::size_t>(node_.inputs.at(input))].type;
}

Placed NodeLowering::x(std::size_t input) {
    if (!has(input)) refuse("input " + std::to_string(input) + " is missing", kAgainstOnnx);
    const auto tensor = static_cast<std::size_t>(node_.inputs[input]);
    if (values_[tensor]) return *values_[tensor];
    if (const Array* array = graph_.known(node_.inputs[input])) return constantStep(program, *array);
    throw std::logic_error("a tensor that nothing has made");
}

const Array& NodeLowering::constant(std::size_t input, const char* what) const {
    const Array* array = has(input) ? graph_.known(node_.inputs[input]) : nullptr;
    if (!has(input)) refuse(std::string(what) + ": missing", kAgainstOnnx);
    if (array == nullptr)
        refuse(std::string(what) + " must not depend on the network's input",
               "export with fixed shapes, or without this computation");
    return *array;
}

Floats NodeLowering::floats(std::size_t input, const char* what) const { return floatsOf(constant(input, what)); }

std::vector<std::int64_t> NodeLowering::integers(std::size_t input, const char* what) const {
    return constant(input, what).ints();
}

const Dims& NodeLowering::outDims(std::size_t output) const {
    if (!wants(output))
        refuse("output " + std::to_string(output) + " is missing", "the file is not valid: export it anew");
    return graph_.dimsOf(node_.outputs[output]);
}

void NodeLowering::result(Placed value, std::size_t output) {
    if (!wants(output)) return;
    if (value.dims() != outDims(output))
        throw std::logic_error("the result has dimensions " + describeDims(value.dims()) + ", expected " +
                               describeDims(outDims(output)));
    values_[static_cast<std::size_t>(node_.outputs[output])] = std::move(value);
}

const onnx::AttributeProto* NodeLowering::attribute(const std::string& name) const {
    for (const auto& attribute : node_.proto.attribute())
        if (attribute.name() == name) return &attribute;
    return nullptr;
}

std::int64_t NodeLowering::integer(const std::string& name, std::int64_t otherwise) const {
    const auto* found = attribute(name);
    return found != nullptr ? found->i() : otherwise;
}

float NodeLowering::number(const std::string& name, float otherwise) const {
    const auto* found = attribute(name);
    return found != nullptr ? found->f() : otherwise;
}

std::string NodeLowering::text(const std::string& name, const std::string& otherwise) const {
    const auto* found = attribute(name);
    return found != nullptr ? found->s() : otherwise;
}

std::vector<std::int64_t> NodeLowering::integerList(const std::string& name,
                                                    std::vector<std::int64_t> otherwise) const {
    const auto* found = attribute(name);
    if (found == nullptr) return otherwise;
    return {found->ints().begin(), found->ints().end()};
}

std::size_t NodeLowering::axis(std::int64_t given, std::size_t rank) const {
    const auto size = static_cast<std::int64_t>(rank);
    if (given < -size || given >= size)
        refuse("axis " + std::to_string(given) + " of a tensor of " + std::to_string(rank) + " dimensions",
               kAgainstOnnx);
    return static_cast<std::size_t>(given < 0 ? given + size : given);
}

std::vector<std::int64_t> NodeLowering::axesOf(std::size_t input) const {
    if (has(input)) return integers(input, "axes");
    return integerList("axes");
}

void NodeLowering::refuse(const std::string& why, const std::string& advice) const { throw Refusal(why, advice); }

}  // namespace convert
