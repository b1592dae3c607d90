#include "fast/FastGraph.h"

#include <utility>

int FastGraph::add(const FastValue& value) {
    values.push_back(value);
    return static_cast<int>(values.size()) - 1;
}

int FastGraph::rootOf(int value) const {
    while (at(value).root >= 0) value = at(value).further >= 0 ? at(value).further : at(value).root;
    return value;
}

int FastGraph::rootOf(int value) {
    const int last = std::as_const(*this).rootOf(value);
    while (value != last) {
        const int next = at(value).further >= 0 ? at(value).further : at(value).root;
        at(value).further = last;
        value = next;
    }
    return last;
}

std::vector<int> FastGraph::countUses() const {
    std::vector<int> uses(values.size(), 0);
    for (const FastNode& node : nodes)
        forEachSource(node, [&](int source) { ++uses[static_cast<std::size_t>(source)]; });
    for (const int output : outputs) ++uses[static_cast<std::size_t>(output)];
    return uses;
}

std::vector<bool> FastGraph::findRoots() const {
    std::vector<bool> isRoot(values.size(), false);
    for (const FastValue& value : values)
        if (value.root >= 0) isRoot[static_cast<std::size_t>(value.root)] = true;
    return isRoot;
}
