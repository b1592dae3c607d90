#include "convert/batchValues.h"

#include <utility>

#include "convert/onnx/text.h"

namespace convert {

namespace {

// Whether each of `batch` parts of an axis in `more` has the values of `one`; inner: elements from that axis on.
template <typename T>
bool repeats(const std::vector<T>& one, const std::vector<T>& more, std::size_t inner, std::size_t batch) {
    const auto isSame = [](T a, T b) { return a == b || (a != a && b != b); };
    for (std::size_t i = 0; i < more.size(); ++i)
        if (!isSame(more[i], one[i / (inner * batch) * inner + i % inner])) return false;
    return true;
}

// Whether the values are the same, or the same for every sample along one axis.
bool isSameForSamples(const Array& one, const Array& more, std::int64_t batch) {
    if (one.isFloat() != more.isFloat() || one.dims().size() != more.dims().size()) return false;
    if (one.dims() == more.dims() && one.isFloat() && &one.floats() == &more.floats()) return true;  // a weight
    std::size_t differing = one.dims().size(), count = 0;
    for (std::size_t axis = 0; axis < one.dims().size(); ++axis) {
        if (one.dims()[axis] == more.dims()[axis]) continue;
        if (more.dims()[axis] != one.dims()[axis] * batch) return false;
        differing = axis;
        ++count;
    }
    if (count > 1) return false;
    std::size_t inner = 1;
    for (std::size_t axis = count == 0 ? 0 : differing; axis < one.dims().size(); ++axis)
        inner *= static_cast<std::size_t>(one.dims()[axis]);
    const std::size_t parts = count == 0 ? 1 : static_cast<std::size_t>(batch);
    return one.isFloat() ? repeats(one.floats(), more.floats(), inner, parts)
                         : repeats(one.ints(), more.ints(), inner, parts);
}

// Whether the input only says which extents the result has.
bool isExtents(const std::string& type, std::size_t input) {
    static const std::map<std::string, std::size_t> kInputs{{"ConstantOfShape", 0}, {"Expand", 1}, {"Reshape", 1},
                                                            {"Slice", 2},           {"Split", 1},  {"Tile", 1},
                                                            {"Upsample", 1}};
    if (type == "Resize") return input >= 1;
    const auto found = kInputs.find(type);
    return found != kInputs.end() && found->second == input;
}

}  // namespace

std::vector<Finding> usesOfBatchValues(const Graph& graph, const std::map<std::string, Value>& more,
                                       std::int64_t batch) {
    const auto changes = [&](int tensor) {
        const Array* one = graph.known(tensor);
        if (one == nullptr) return false;
        const auto found = more.find(graph.nameOf(tensor));
        return found != more.end() && found->second.known && !isSameForSamples(*one, *found->second.known, batch);
    };
    std::vector<Finding> findings;
    const auto add = [&](const std::string& node, const std::string& type, int tensor) {
        findings.push_back({node, type, "the values of " + inQuotes(graph.nameOf(tensor)) + " change with the batch",
                            "export with a fixed batch of 1, or leave what they serve to the host"});
    };
    for (const Node& node : graph.nodes)
        for (std::size_t i = 0; i < node.inputs.size(); ++i)
            if (!isExtents(node.type(), i) && changes(node.inputs[i])) {
                add(graph.nameOf(node), node.type(), node.inputs[i]);
                break;
            }
    for (const int output : graph.outputs)
        if (changes(output)) add(graph.nameOf(output), "output", output);
    return findings;
}

}  // namespace convert
