#include "inspect/format.h"
#include "nolk/bench/benchReport.h"
#include "nolk/json.h"

namespace {

// All times are in nanoseconds; start is relative to the start of the first run.
Json event(const std::string& name, const char* category, std::int64_t start, std::int64_t duration) {
    const double micro = 1e-3;
    return {{"name", name},
            {"cat", category},
            {"ph", "X"},
            {"ts", micro * static_cast<double>(start)},
            {"dur", micro * static_cast<double>(duration)},
            {"pid", 1},
            {"tid", 1}};
}

Json nameOfProcess(const std::string& model) {
    return {{"name", "process_name"}, {"ph", "M"}, {"pid", 1}, {"tid", 1}, {"args", {{"name", "nolk " + model}}}};
}

Json argumentsOf(const LayerTime& layer) {
    Json arguments = {{"layer", layer.number}, {"output", shapeText(layer.output)}};
    if (!layer.operation) return arguments;
    arguments["record"] = layer.operation->record;
    arguments["operation"] = layer.operation->name;
    arguments["details"] = layer.operation->details;
    if (layer.multiplyAdds() > 0) arguments["multiply-adds"] = layer.multiplyAdds();
    return arguments;
}

void addRun(Json& events, std::size_t index, const LayerTimes::Timestamps& timestamps, std::int64_t zero,
            const std::vector<LayerTime>& layers) {
    const std::int64_t start = timestamps.front();
    events.push_back(event("run " + std::to_string(index), "run", start - zero, timestamps.back() - start));
    events.push_back(event("inputs", "run", start - zero, timestamps[1] - start));
    for (std::size_t i = 0; i < layers.size(); ++i) {
        events.push_back(
            event(layers[i].kind, "layer", timestamps[i + 1] - zero, timestamps[i + 2] - timestamps[i + 1]));
        events.back()["args"] = argumentsOf(layers[i]);
    }
}

}  // namespace

std::string chromeTrace(const LayerTimes& times, const std::string& model) {
    Json events = Json::array({nameOfProcess(model)});
    const std::vector<LayerTime> layers = times.layers();
    const auto& runs = times.timestamps();
    for (std::size_t i = 0; i < runs.size(); ++i) addRun(events, i, runs[i], runs.front().front(), layers);
    return jsonText({{"displayTimeUnit", "ns"}, {"traceEvents", events}}, 1);
}
