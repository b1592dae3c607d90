// The results of a benchmark, as text for people and as JSON for programs.
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
    std::vector<LayerTime> layers;  // empty unless they were requested

    double imagesPerSecond() const { return batch / times.mean; }
};

// Both contain the time of each layer and the sums for each kind of layer.
std::string reportText(const BenchReport& report);
std::string reportJson(const BenchReport& report);

// The runs as trace events in JSON, which browsers show along a time line (chrome://tracing, ui.perfetto.dev): a
// complete event for each run, which contains the events of its layers.
std::string chromeTrace(const LayerTimes& times, const std::string& model);
