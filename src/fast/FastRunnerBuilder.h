// The builder of the fast back end, "NolkFast". It records and checks calls as the built-in builder does, from which it
// derives, so both refuse the same networks; build() alone differs. It reads the recorded factories into a FastGraph,
// lets the passes rewrite the graph, plans the memory and makes a FastRunner, which owns everything that it needs.
// One thread uses a builder, like any other. FastGraph.h names the passes; docs/fast.md explains them.
#pragma once

#include <cstdint>
#include <limits>

#include "builder/MemoryLimit.h"
#include "builder/RawRunnerBuilder.h"
#include "fast/FastSettings.h"

class FastRunnerBuilder final : public RawRunnerBuilder, public MemoryLimit {
public:
    // cfg: settings, or null. Throws what FastSettings::parse throws.
    explicit FastRunnerBuilder(const char* cfg) : RawRunnerBuilder(nullptr), settings_(FastSettings::parse(cfg)) {}

    nolk::Runner* build(nolk::TensorX** outputs, int count) override;
    void limitMemory(std::int64_t bytes) override { mostBytes_ = bytes; }

private:
    void checkMemory(std::int64_t arenaFloats, double keptFloats) const;

    FastSettings settings_;
    std::int64_t mostBytes_ = std::numeric_limits<std::int64_t>::max();
};
