// The memory plan of random networks, checked by other means than it was made with.
#include <gtest/gtest.h>

#include <map>

#include "builder/RawRunnerBuilder.h"
#include "fast/chooseLayouts.h"
#include "fast/fuseSteps.h"
#include "fast/planMemory.h"
#include "fast/readFastGraph.h"
#include "support/RandomNetwork.h"

namespace {

class GraphBuilder final : public RawRunnerBuilder {
public:
    GraphBuilder() : RawRunnerBuilder(nullptr) {}
    FastGraph graph(Xs& outputs) {
        const Xs checked = prepare(outputs.data(), static_cast<int>(outputs.size()));
        FastGraph graph = readFastGraph(factories(), inputs(), checked);
        fuseSteps(graph);
        chooseLayouts(graph);
        return graph;
    }
};

// The floats [begin, end) of the arena that a value or scratch memory takes, needed from node `first` to node `last`.
struct Block {
    std::int64_t begin, end;
    int first, last;
};

// By following each use of a value to the value in whose memory it lies.
std::vector<Block> blocksOf(const FastGraph& graph, const FastPlan& plan, const std::vector<std::int64_t>& scratch) {
    const int nodes = static_cast<int>(graph.nodes.size());
    std::map<int, Block> blocks;
    const auto use = [&](int value, int node) {
        const int root = graph.rootOf(value);
        const FastValue& v = graph.at(root);
        if (v.constant) return;
        const FastView& view = plan.views[static_cast<std::size_t>(root)];
        const bool full = std::min({v.shape.n, v.shape.c, v.shape.h, v.shape.w}) > 0;
        const std::int64_t floats = std::max(full ? view.strides.sample * v.shape.n : 0, v.minimumFloats);
        Block& block = blocks.try_emplace(root, Block{view.offset, view.offset + floats, node, node}).first->second;
        block.first = std::min(block.first, node);
        block.last = std::max(block.last, node);
    };
    for (const int value : graph.inputs) use(value, -1);
    for (const int value : graph.outputs) use(value, nodes);
    std::vector<Block> all;
    for (int i = 0; i < nodes; ++i) {
        const std::size_t k = static_cast<std::size_t>(i);
        use(graph.nodes[k].output, i);
        forEachSource(graph.nodes[k], [&](int value) { use(value, i); });
        all.push_back({plan.scratch[k], plan.scratch[k] + scratch[k], i, i});
    }
    for (const auto& [value, block] : blocks) all.push_back(block);
    return all;
}

TEST(FastPlan, WhatIsNeededAtTheSameTimeDoesNotOverlap) {
    for (std::uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        GraphBuilder builder;
        RandomNetwork network(seed, 1 + static_cast<int>(seed % 2));
        Xs outputs = network.record(builder);
        const FastGraph graph = builder.graph(outputs);
        std::vector<std::int64_t> scratch;
        for (std::size_t i = 0; i < graph.nodes.size(); ++i)
            scratch.push_back(i % 3 == 0 ? 16 * static_cast<int>(i) : 0);
        const FastPlan plan = planMemory(graph, scratch);
        const std::vector<Block> blocks = blocksOf(graph, plan, scratch);
        for (int node = -1; node <= static_cast<int>(graph.nodes.size()); ++node) {
            std::map<std::int64_t, std::int64_t> live;  // end by begin
            std::int64_t sum = 0;
            for (const Block& block : blocks) {
                if (block.begin == block.end || node < block.first || node > block.last) continue;
                EXPECT_TRUE(live.emplace(block.begin, block.end).second) << "two begin at " << block.begin;
                sum += block.end - block.begin;
            }
            std::int64_t end = 0;
            for (const auto& [from, to] : live) {
                EXPECT_GE(from, end) << "node " << node;
                end = to;
            }
            EXPECT_LE(end, plan.floats);
            EXPECT_LE(sum, plan.lowerBound);
        }
        EXPECT_LE(plan.lowerBound, plan.floats);
        EXPECT_LE(plan.floats, plan.lowerBound + plan.lowerBound / 4);
    }
}

}  // namespace
