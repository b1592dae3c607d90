#include "fast/planMemory.h"

#include <algorithm>

#include "fast/placeRanges.h"

namespace {

std::int64_t rounded(std::int64_t floats) { return (floats + kFastBlock - 1) / kFastBlock * kFastBlock; }

// Of a value that has no root.
std::int64_t floatsOf(const FastValue& v) {
    if (std::min({v.shape.n, v.shape.c, v.shape.h, v.shape.w}) < 1) return 0;
    return FastStrides(v.shape, v.layout, v.border).sample * v.shape.n;
}

// Where a value lies, by following its roots.
struct Home {
    int root = -1;              // the last one, or the value itself; -1 if not known yet
    int whole = -1;             // the last one of whose channels the value is a range, or -1
    std::ptrdiff_t blocks = 0;  // before its first channel
};

Home homeOf(const FastValue& part, Home ofRoot) {
    if (part.reshaped) return ofRoot;
    return {ofRoot.root, ofRoot.whole >= 0 ? ofRoot.whole : part.root, ofRoot.blocks + part.firstChannel / kFastBlock};
}

// Of all values. Each root is followed once, because chains of them may be long.
std::vector<Home> homesOf(const FastGraph& graph) {
    std::vector<Home> homes(graph.values.size());
    const auto homeAt = [&](int value) -> Home& { return homes[static_cast<std::size_t>(value)]; };
    std::vector<int> chain;
    for (int value = 0; value < static_cast<int>(homes.size()); ++value) {
        int at = value;
        for (; homeAt(at).root < 0 && graph.at(at).root >= 0; at = graph.at(at).root) chain.push_back(at);
        homeAt(at).root = homeAt(at).root < 0 ? at : homeAt(at).root;
        for (; !chain.empty(); chain.pop_back()) {
            const FastValue& part = graph.at(chain.back());
            homeAt(chain.back()) = homeOf(part, homeAt(part.root));
        }
    }
    return homes;
}

FastView viewOf(const FastGraph& graph, const FastValue& v, const Home& home, const std::vector<FastRange>& ranges) {
    FastView view;
    view.shape = v.shape;
    view.layout = v.layout;
    view.border = graph.at(home.root).border;
    view.strides = FastStrides(v.shape, v.layout, view.border);
    view.constant = v.constant;
    if (home.whole >= 0) {
        const FastValue& whole = graph.at(home.whole);
        view.strides.sample = FastStrides(whole.shape, whole.layout, view.border).sample;
    }
    view.offset = home.blocks * view.strides.plane + ranges[static_cast<std::size_t>(home.root)].offset;
    return view;
}

}  // namespace

FastPlan planMemory(const FastGraph& graph, const std::vector<std::int64_t>& scratchFloats) {
    const int nodes = static_cast<int>(graph.nodes.size());
    std::vector<FastRange> ranges(graph.values.size() + graph.nodes.size());
    const std::vector<Home> homes = homesOf(graph);
    const auto rangeOf = [&](int value) -> FastRange& {
        return ranges[static_cast<std::size_t>(homes[static_cast<std::size_t>(value)].root)];
    };
    for (std::size_t v = 0; v < graph.values.size(); ++v) {
        const FastValue& value = graph.values[v];
        if (value.root >= 0 || value.constant) continue;
        ranges[v].size = rounded(std::max(floatsOf(value), value.minimumFloats));
    }
    for (const int input : graph.inputs) rangeOf(input).extend(-1);
    for (int i = 0; i < nodes; ++i) {
        const FastNode& node = graph.nodes[static_cast<std::size_t>(i)];
        rangeOf(node.output).extend(i);
        forEachSource(node, [&](int source) { rangeOf(source).extend(i); });
        FastRange& scratch = ranges[graph.values.size() + static_cast<std::size_t>(i)];
        scratch.size = rounded(scratchFloats[static_cast<std::size_t>(i)]);
        scratch.extend(i);
    }
    for (const int output : graph.outputs) rangeOf(output).extend(nodes);

    FastPlan plan;
#ifdef NOLK_SEPARATE_TENSORS
    for (FastRange& range : ranges) {
        range.extend(-1);
        range.extend(nodes);
        if (range.size > 0) range.size += kFastGap;
    }
#endif
    plan.lowerBound = peakOf(ranges, nodes).floats;
    plan.floats = placeRanges(ranges, nodes);
#ifdef NOLK_SEPARATE_TENSORS
    for (const FastRange& range : ranges)
        if (range.size > 0) plan.gaps.push_back(range.offset + range.size - kFastGap);
#endif
    for (std::size_t v = 0; v < graph.values.size(); ++v)
        plan.views.push_back(viewOf(graph, graph.values[v], homes[v], ranges));
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) plan.scratch.push_back(ranges[graph.values.size() + i].offset);
    return plan;
}
