// What a benchmark has found, for people and for programs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nolk/bench/LayerTimes.h"
#include "nolk/bench/RunTimes.h"

struct BenchReport {
    std::string model;
    int batch;
    int threads;
    int warmup;
    std::size_t runs;
    double loadSeconds;
    RunTimes times;
    std::optional<std::int64_t> peakBytes;  // unknown where the system does not tell
    std::vector<LayerTime> layers;          // none, unless they were wanted

    double imagesPerSecond() const { return batch / times.mean; }
};

std::string reportText(const BenchReport& report);
std::string reportJson(const BenchReport& report);
