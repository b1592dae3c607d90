// How good memory plans of random networks are. That nothing overlaps shows in the networks' results.
#include <gtest/gtest.h>

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

}  // namespace
