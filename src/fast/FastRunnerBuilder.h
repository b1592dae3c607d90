// The builder of the fast back end, "NolkFast". It records and checks like the built-in one, and builds a FastRunner.
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
