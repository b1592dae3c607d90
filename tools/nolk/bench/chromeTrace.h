#pragma once

#include <string>

#include "nolk/bench/LayerTimes.h"

// The runs as trace events in JSON, which browsers show along a time line (chrome://tracing, ui.perfetto.dev): a
// complete event for each run, the layers' nested in it.
std::string chromeTrace(const LayerTimes& times, const std::string& model);
