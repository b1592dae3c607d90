// How good memory plans of random networks are. That nothing overlaps shows in the networks' results.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>

#include "builder/RawRunnerBuilder.h"
#include "fast/chooseLayouts.h"
#include "fast/fuseSteps.h"
#include "fast/placeRanges.h"
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

TEST(FastPlan, TakesAQuarterMoreThanTheLeastAtMost) {
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
        EXPECT_LE(plan.lowerBound, plan.floats);
        EXPECT_LE(plan.floats, plan.lowerBound + plan.lowerBound / 4);
    }
}

// Candidates are 0 and the ends of all ranges.
std::int64_t lowestFree(const std::vector<FastRange>& placed, const FastRange& range) {
    std::set<std::int64_t> candidates{0};
    for (const FastRange& other : placed) candidates.insert(other.offset + other.size);
    for (const std::int64_t offset : candidates)
        if (std::none_of(placed.begin(), placed.end(), [&](const FastRange& other) {
                return other.first <= range.last && range.first <= other.last && other.offset < offset + range.size &&
                       offset < other.offset + other.size;
            }))
            return offset;
    return -1;
}

TEST(FastPlan, LargerRangesComeFirstEachAtTheLowestFreeOffset) {
    std::mt19937 random(1);
    const auto below = [&random](int bound) { return static_cast<int>(random() % static_cast<unsigned>(bound)); };
    for (int seed = 0; seed < 300; ++seed) {
        const int nodes = below(40), longest = 1 + below(nodes + 2);
        std::vector<FastRange> ranges(1 + below(60)), placed;
        for (FastRange& range : ranges) {
            range.size = below(20);
            range.extend(below(nodes + 2) - 1);
            range.extend(seed % 4 == 0 ? nodes : std::min(nodes, range.first + below(longest)));
        }
        placeRanges(ranges, nodes);
        std::stable_sort(ranges.begin(), ranges.end(), [](auto& a, auto& b) { return a.size > b.size; });
        for (const FastRange& range : ranges) {
            if (range.size == 0) continue;
            EXPECT_EQ(range.offset, lowestFree(placed, range)) << "seed " << seed;
            placed.push_back(range);
        }
    }
}

}  // namespace
