// The builder of the fast back end, "NolkFast". It records and checks like the built-in one, and builds a FastRunner.
#pragma once

#include "builder/RawRunnerBuilder.h"
#include "fast/FastSettings.h"

class FastRunnerBuilder final : public RawRunnerBuilder {
public:
    // cfg: settings, or null. Throws what FastSettings::parse throws.
    explicit FastRunnerBuilder(const char* cfg) : RawRunnerBuilder(nullptr), settings_(FastSettings::parse(cfg)) {}

    nolk::Runner* build(nolk::TensorX** outputs, int count) override;

private:
    FastSettings settings_;
};
