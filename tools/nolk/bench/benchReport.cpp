#include "nolk/bench/benchReport.h"

#include <nlohmann/json.hpp>

#include "nolk/Table.h"
#include "nolk/shapeJson.h"
#include "inspect/format.h"

namespace {

using Json = nlohmann::ordered_json;

std::string timeText(double seconds) {
    if (seconds < 1e-3) return shortText(seconds * 1e6, 4) + " us";
    return seconds < 1 ? shortText(seconds * 1e3, 4) + " ms" : shortText(seconds, 4) + " s";
}

double gflops(std::int64_t multiplyAdds, double seconds) {
    return seconds > 0 ? 2e-9 * static_cast<double>(multiplyAdds) / seconds : 0;
}

LayerTime sumOf(const std::vector<LayerTime>& layers) {
    LayerTime sum{layers.size(), "all layers", {}, 0, 0};
    for (const LayerTime& layer : layers) {
        sum.multiplyAdds += layer.multiplyAdds;
        sum.seconds += layer.seconds;
    }
    return sum;
}

double shareOf(const LayerTime& layer, const LayerTime& sum) {
    return sum.seconds > 0 ? layer.seconds / sum.seconds : 0;
}

std::string line(std::string name, const std::string& value) {
    name.resize(19, ' ');
    return name + value + "\n";
}

std::string layersText(const BenchReport& report) {
    const LayerTime sum = sumOf(report.layers);
    Table table({{"layer", true}, {"kind"}, {"output"}, {"mean us", true}, {"share", true}, {"GFLOP/s", true}});
    const auto add = [&](const std::string& number, const LayerTime& layer, const std::string& output) {
        table.add({number, layer.kind, output, fixedText(layer.seconds * 1e6, 2),
                   fixedText(100 * shareOf(layer, sum), 1) + " %",
                   layer.multiplyAdds > 0 ? fixedText(gflops(layer.multiplyAdds, layer.seconds), 2) : "-"});
    };
    for (const LayerTime& layer : report.layers) add(std::to_string(layer.number), layer, shapeText(layer.output));
    add("", sum, "");
    table.add({"", "whole run", "", fixedText(report.times.mean * 1e6, 2), "", ""});
    return table.text();
}

}  // namespace

std::string reportText(const BenchReport& report) {
    const RunTimes& t = report.times;
    std::string text = printable(report.model) + "\n";
    text += line("batch", std::to_string(report.batch));
    text += line("threads", std::to_string(report.threads));
    text += line("load", timeText(report.loadSeconds));
    text += line("runs", grouped(static_cast<std::int64_t>(report.runs)) + " after " + std::to_string(report.warmup) +
                             " to warm up");
    text += line("minimum", timeText(t.minimum));
    text += line("median", timeText(t.median));
    text += line("mean", timeText(t.mean));
    text += line("99th percentile", timeText(t.p99));
    text += line("images per second", fixedText(report.imagesPerSecond(), report.imagesPerSecond() < 100 ? 2 : 0));
    if (report.peakBytes) text += line("peak memory", bytesText(*report.peakBytes));
    return text + (report.layers.empty() ? "" : "\n" + layersText(report));
}

std::string reportJson(const BenchReport& report) {
    const RunTimes& t = report.times;
    Json json = {{"path", report.model},
                 {"batch", report.batch},
                 {"threads", report.threads},
                 {"loadSeconds", report.loadSeconds},
                 {"warmup", report.warmup},
                 {"runs", report.runs},
                 {"seconds", {{"minimum", t.minimum}, {"median", t.median}, {"mean", t.mean}, {"p99", t.p99}}},
                 {"imagesPerSecond", report.imagesPerSecond()},
                 {"peakBytes", nullptr}};
    if (report.peakBytes) json["peakBytes"] = *report.peakBytes;
    const LayerTime sum = sumOf(report.layers);
    for (const LayerTime& layer : report.layers)
        json["layers"].push_back({{"layer", layer.number},
                                  {"kind", layer.kind},
                                  {"output", shapeJson(layer.output)},
                                  {"dims", layer.output.dims},
                                  {"seconds", layer.seconds},
                                  {"share", shareOf(layer, sum)},
                                  {"multiplyAdds", layer.multiplyAdds},
                                  {"gflops", gflops(layer.multiplyAdds, layer.seconds)}});
    // A file name need not be text.
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
