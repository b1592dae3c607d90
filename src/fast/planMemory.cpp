#include "fast/planMemory.h"

#include <algorithm>
#include <climits>
#include <new>
#include <numeric>

namespace {

// A range of memory and the nodes during which it is needed.
struct Range {
    std::int64_t size = 0;
    int first = INT_MAX, last = -1;
    std::int64_t offset = 0;

    void extend(int node) {
        first = std::min(first, node);
        last = std::max(last, node);
    }
    bool meets(const Range& other) const { return first <= other.last && other.first <= last; }
};

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

// The tallest pile of ranges that are needed at the same time.
std::int64_t largestSum(const std::vector<Range>& ranges, int nodes) {
    std::vector<std::int64_t> change(static_cast<std::size_t>(nodes) + 3, 0);
    for (const Range& range : ranges) {
        if (range.last < range.first) continue;
        change[static_cast<std::size_t>(range.first) + 1] += range.size;
        change[static_cast<std::size_t>(range.last) + 2] -= range.size;
    }
    std::int64_t sum = 0, largest = 0;
    for (const std::int64_t c : change) largest = std::max(largest, sum += c);
    return largest;
}

// Returns the size of the arena.
std::int64_t place(std::vector<Range>& ranges) {
    std::vector<std::size_t> order(ranges.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return ranges[a].size > ranges[b].size; });
    std::int64_t end = 0;
    std::vector<const Range*> placed;  // by offset
    for (const std::size_t i : order) {
        Range& range = ranges[i];
        if (range.size == 0 || range.last < range.first) continue;
        std::int64_t offset = 0;
        for (const Range* other : placed) {
            if (!other->meets(range)) continue;
            if (other->offset - offset >= range.size) break;
            offset = std::max(offset, other->offset + other->size);
        }
        range.offset = offset;
        end = std::max(end, offset + range.size);
        placed.insert(std::upper_bound(placed.begin(), placed.end(), &range,
                                       [](const Range* a, const Range* b) { return a->offset < b->offset; }),
                      &range);
    }
    return end;
}

FastView viewOf(const FastGraph& graph, const FastValue& v, const Home& home, const std::vector<Range>& ranges) {
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
    std::vector<Range> ranges(graph.values.size() + graph.nodes.size());
    const std::vector<Home> homes = homesOf(graph);
    const auto rangeOf = [&](int value) -> Range& {
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
        Range& scratch = ranges[graph.values.size() + static_cast<std::size_t>(i)];
        scratch.size = rounded(scratchFloats[static_cast<std::size_t>(i)]);
        scratch.extend(i);
    }
    for (const int output : graph.outputs) rangeOf(output).extend(nodes);

    FastPlan plan;
#ifdef NOLK_SEPARATE_TENSORS
    for (Range& range : ranges) {
        range.extend(-1);
        range.extend(nodes);
        if (range.size > 0) range.size += kFastGap;
    }
#endif
    plan.lowerBound = largestSum(ranges, nodes);
    plan.floats = place(ranges);
#ifdef NOLK_SEPARATE_TENSORS
    for (const Range& range : ranges)
        if (range.size > 0) plan.gaps.push_back(range.offset + range.size - kFastGap);
#endif
    if (plan.floats > INT_MAX) throw std::bad_alloc();
    for (std::size_t v = 0; v < graph.values.size(); ++v)
        plan.views.push_back(viewOf(graph, graph.values[v], homes[v], ranges));
    for (std::size_t i = 0; i < graph.nodes.size(); ++i) plan.scratch.push_back(ranges[graph.values.size() + i].offset);
    return plan;
}
