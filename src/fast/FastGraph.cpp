#include "fast/FastGraph.h"

#include <cstring>

#include "builder/shapes.h"

int FastGraph::add(const FastValue& value) {
    values.push_back(value);
    return static_cast<int>(values.size()) - 1;
}

int FastGraph::rootOf(int value) const {
    while (at(value).root >= 0) value = at(value).root;
    return value;
}

std::vector<int> FastGraph::countUses() const {
    std::vector<int> uses(values.size(), 0);
    for (const FastNode& node : nodes)
        forEachSource(node, [&](int source) { ++uses[static_cast<std::size_t>(source)]; });
    for (const int output : outputs) ++uses[static_cast<std::size_t>(output)];
    return uses;
}

void FastGraph::keepConstants() {
    for (FastValue& value : values) {
        const bool own = value.layout == FastLayout::blocks;  // made by a pass
        if (!value.constant || own || value.root >= 0) continue;
        const auto count = static_cast<std::size_t>(elementCount(value.shape));
        constants.push_back(zeroedFloats(count));
        if (count > 0) std::memcpy(constants.back().get(), value.constant, count * sizeof(float));
        value.constant = constants.back().get();
    }
    for (FastValue& value : values)
        if (value.constant && value.root >= 0) value.constant = at(value.root).constant;
}
