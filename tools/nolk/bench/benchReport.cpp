#include "nolk/bench/benchReport.h"

#include <algorithm>

#include "inspect/format.h"
#include "nolk/json.h"
#include "nolk/output.h"

namespace {

// The time and the multiply-adds of several layers together.
struct Sum {
    std::string kind;
    std::int64_t layers = 0;
    std::int64_t multiplyAdds = 0;
    double seconds = 0;

    void add(const LayerTime& layer) {
        ++layers;
        multiplyAdds += layer.multiplyAdds();
        seconds += layer.seconds;
    }
};

Sum sumOf(const std::vector<LayerTime>& layers) {
    Sum sum{"all layers"};
    for (const LayerTime& layer : layers) sum.add(layer);
    return sum;
}

// Sorted by time, the longest first.
std::vector<Sum> sumsOfKinds(const std::vector<LayerTime>& layers) {
    std::vector<Sum> sums;
    for (const LayerTime& layer : layers) {
        auto sum = std::find_if(sums.begin(), sums.end(), [&](const Sum& s) { return s.kind == layer.kind; });
        if (sum == sums.end()) sum = sums.insert(sum, Sum{layer.kind});
        sum->add(layer);
    }
    std::stable_sort(sums.begin(), sums.end(), [](const Sum& a, const Sum& b) { return a.seconds > b.seconds; });
    return sums;
}

double shareOf(double seconds, const Sum& all) { return all.seconds > 0 ? seconds / all.seconds : 0; }

std::string timeText(double seconds) {
    if (seconds < 1e-3) return shortText(seconds * 1e6, 4) + " us";
    return seconds < 1 ? shortText(seconds * 1e3, 4) + " ms" : shortText(seconds, 4) + " s";
}

double gflops(std::int64_t multiplyAdds, double seconds) {
    return seconds > 0 ? 2e-9 * static_cast<double>(multiplyAdds) / seconds : 0;
}

std::string microText(double seconds) { return fixedText(seconds * 1e6, 2); }

std::string shareText(double share) { return fixedText(100 * share, 1) + " %"; }

std::string gflopsText(std::int64_t multiplyAdds, double seconds) {
    return multiplyAdds > 0 ? fixedText(gflops(multiplyAdds, seconds), 2) : "-";
}

std::string line(std::string name, const std::string& value) {
    name.resize(19, ' ');
    return name + value + "\n";
}

std::string layersText(const BenchReport& report) {
    const Sum all = sumOf(report.layers);
    Table table({{"layer", true},
                 {"record", true},
                 {"kind"},
                 {"details"},
                 {"output"},
                 {"mean us", true},
                 {"share", true},
                 {"GFLOP/s", true}});
    for (const LayerTime& layer : report.layers)
        table.add({std::to_string(layer.number), layer.operation ? "#" + std::to_string(layer.operation->record) : "",
                   layer.kind, layer.operation ? layer.operation->details : "", shapeText(layer.output),
                   microText(layer.seconds), shareText(shareOf(layer.seconds, all)),
                   gflopsText(layer.multiplyAdds(), layer.seconds)});
    table.add({"", "", all.kind, "", "", microText(all.seconds), shareText(shareOf(all.seconds, all)),
               gflopsText(all.multiplyAdds, all.seconds)});
    table.add({"", "", "whole run", "", "", microText(report.times.mean), "", ""});
    return table.text();
}

std::string kindsText(const BenchReport& report) {
    const Sum all = sumOf(report.layers);
    Table table({{"kind"}, {"layers", true}, {"mean us", true}, {"share", true}});
    for (const Sum& sum : sumsOfKinds(report.layers))
        table.add({sum.kind, std::to_string(sum.layers), microText(sum.seconds), shareText(shareOf(sum.seconds, all))});
    return table.text();
}

Json layerJson(const LayerTime& layer, const Sum& all) {
    const nolk::ModelOperation* const operation = layer.operation;
    return {{"layer", layer.number},
            {"record", operation ? Json(operation->record) : Json(nullptr)},
            {"operation", operation ? Json(operation->name) : Json(nullptr)},
            {"kind", layer.kind},
            {"details", operation ? Json(operation->details) : Json(nullptr)},
            {"output", shapeJson(layer.output)},
            {"dims", layer.output.dims},
            {"seconds", layer.seconds},
            {"share", shareOf(layer.seconds, all)},
            {"multiplyAdds", layer.multiplyAdds()},
            {"gflops", gflops(layer.multiplyAdds(), layer.seconds)}};
}

}  // namespace

std::string reportText(const BenchReport& report) {
    const RunTimes& t = report.times;
    std::string text = printable(report.model) + "\n";
    text += line("implementation", printable(report.implementation));
    text += line("batch", std::to_string(report.batch));
    if (report.threads > 0) text += line("threads", std::to_string(report.threads));
    text += line("load", timeText(report.loadSeconds));
    text += line("runs", grouped(static_cast<std::int64_t>(report.runs)) + " after " + std::to_string(report.warmup) +
                             " to warm up");
    text += line("minimum", timeText(t.minimum));
    text += line("median", timeText(t.median));
    text += line("mean", timeText(t.mean));
    text += line("99th percentile", timeText(t.p99));
    text += line("images per second", fixedText(report.imagesPerSecond(), report.imagesPerSecond() < 100 ? 2 : 0));
    if (report.peakBytes >= 0) text += line("peak memory", bytesText(report.peakBytes));
    return text + (report.layers.empty() ? "" : "\n" + layersText(report) + "\n" + kindsText(report));
}

std::string reportJson(const BenchReport& report) {
    const RunTimes& t = report.times;
    Json json = {{"path", report.model},
                 {"implementation", report.implementation},
                 {"batch", report.batch},
                 {"threads", report.threads > 0 ? Json(report.threads) : Json(nullptr)},
                 {"loadSeconds", report.loadSeconds},
                 {"warmup", report.warmup},
                 {"runs", report.runs},
                 {"seconds", {{"minimum", t.minimum}, {"median", t.median}, {"mean", t.mean}, {"p99", t.p99}}},
                 {"imagesPerSecond", report.imagesPerSecond()},
                 {"peakBytes", report.peakBytes >= 0 ? Json(report.peakBytes) : Json(nullptr)}};
    const Sum all = sumOf(report.layers);
    for (const LayerTime& layer : report.layers) json["layers"].push_back(layerJson(layer, all));
    for (const Sum& sum : sumsOfKinds(report.layers))
        json["kinds"].push_back({{"kind", sum.kind},
                                 {"layers", sum.layers},
                                 {"seconds", sum.seconds},
                                 {"share", shareOf(sum.seconds, all)},
                                 {"multiplyAdds", sum.multiplyAdds}});
    return jsonText(json);
}
