#include "nolk/bench/chromeTrace.h"

#include <nlohmann/json.hpp>

#include "inspect/format.h"

namespace {

using Json = nlohmann::ordered_json;
using Clock = LayerTimes::Clock;

double microseconds(Clock::duration duration) { return std::chrono::duration<double, std::micro>(duration).count(); }

Json event(const std::string& name, const char* category, Clock::duration start, Clock::duration duration) {
    return {
        {"name", name}, {"cat", category}, {"ph", "X"}, {"ts", microseconds(start)}, {"dur", microseconds(duration)},
        {"pid", 1},     {"tid", 1}};
}

Json nameOfProcess(const std::string& model) {
    return {{"name", "process_name"}, {"ph", "M"}, {"pid", 1}, {"tid", 1}, {"args", {{"name", "nolk " + model}}}};
}

void addRun(Json& events, std::size_t index, const LayerTimes::Moments& moments, Clock::time_point zero,
            const std::vector<LayerTime>& layers) {
    const Clock::time_point start = moments.front();
    events.push_back(event("run " + std::to_string(index), "run", start - zero, moments.back() - start));
    events.push_back(event("inputs", "run", start - zero, moments[1] - start));
    for (std::size_t i = 0; i < layers.size(); ++i) {
        Json layer = event(layers[i].kind, "layer", moments[i + 1] - zero, moments[i + 2] - moments[i + 1]);
        layer["args"] = {{"layer", layers[i].number}, {"output", shapeText(layers[i].output)}};
        if (layers[i].multiplyAdds > 0) layer["args"]["multiply-adds"] = layers[i].multiplyAdds;
        events.push_back(layer);
    }
}

}  // namespace

std::string chromeTrace(const LayerTimes& times, const std::string& model) {
    Json events = Json::array({nameOfProcess(model)});
    const std::vector<LayerTime> layers = times.layers();
    const auto& runs = times.moments();
    for (std::size_t i = 0; i < runs.size(); ++i) addRun(events, i, runs[i], runs.front().front(), layers);
    const Json trace = {{"displayTimeUnit", "ns"}, {"traceEvents", events}};
    // A file name need not be text.
    return trace.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}
