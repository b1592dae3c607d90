// What a benchmark has found, for people and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nolk/bench/LayerTimes.h"
#include "nolk/bench/measure.h"

struct BenchReport {
    std::string model;
    std::string implementation;
    int batch;
    int threads;  // 0: not known
    int warmup;
    std::size_t runs;
    double loadSeconds;
    RunTimes times;
    std::int64_t peakBytes;         // -1: not known
    std::vector<LayerTime> layers;  // none, unless they were wanted

    double imagesPerSecond() const { return batch / times.mean; }
};

// With the layers' times each, and their sum for each kind.
std::string reportText(const BenchReport& report);
std::string reportJson(const BenchReport& report);

// The runs as trace events in JSON, which browsers show along a time line (chrome://tracing, ui.perfetto.dev): a
// complete event for each run, the layers' nested in it.
std::string chromeTrace(const LayerTimes& times, const std::string& model);
