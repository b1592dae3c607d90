#include "nolk/info/infoReport.h"

#include <algorithm>

#include "inspect/counts.h"
#include "inspect/format.h"
#include "nolk/json.h"
#include "nolk/output.h"

namespace {

using nolk::ModelInfo;
using nolk::ModelOperation;

constexpr std::size_t kShownHeadInfoBytes = 32;

std::int64_t weightBytesInFile(const ModelInfo& info) {
    std::int64_t bytes = 0;
    for (const ModelOperation& operation : info.operations) bytes = sumOf(bytes, operation.weightBytesInFile);
    return bytes;
}

std::string hexText(const std::vector<unsigned char>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

// The bytes as text if they are printable, else in hexadecimal.
std::string shownBytes(const std::vector<unsigned char>& data) {
    if (data.empty()) return {};
    const bool isText = std::all_of(data.begin(), data.end(), [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
    const bool isCut = data.size() > kShownHeadInfoBytes;
    const std::vector<unsigned char> shown(data.begin(), isCut ? data.begin() + kShownHeadInfoBytes : data.end());
    return ": " + (isText ? "\"" + std::string(shown.begin(), shown.end()) + "\"" : hexText(shown)) +
           (isCut ? "..." : "");
}

// Keys that have a meaning are called by it; a note begins with its name and a zero byte.
std::string headInfoText(const nolk::HeadInfo& entry) {
    constexpr const char* kMeanings[] = {"input name", "output name", "made by", "note"};
    constexpr int kNote = 4;
    if (entry.key < 1 || entry.key > kNote)
        return "key " + std::to_string(entry.key) + ", " +
               counted(static_cast<std::int64_t>(entry.data.size()), "byte") + shownBytes(entry.data);
    std::string text = kMeanings[entry.key - 1];
    std::vector<unsigned char> data = entry.data;
    const auto zero = std::find(data.begin(), data.end(), 0);
    if (entry.key == kNote && zero != data.end()) {
        text += " \"" + printable(std::string(data.begin(), zero)) + "\"";
        data.erase(data.begin(), zero + 1);
    }
    return text + (data.empty() ? ": \"\"" : shownBytes(data));
}

const ModelOperation& operationAt(const ModelInfo& info, int place) {
    return info.operations[static_cast<std::size_t>(place)];
}

std::string reference(const ModelInfo& info, int place) {
    return place < 0 ? "none" : "#" + std::to_string(operationAt(info, place).record);
}

std::string headText(const std::string& path, const ModelInfo& info) {
    std::string text = printable(path) + ": version " + std::to_string(info.version) + ", " +
                       bytesText(info.fileBytes) + ", " + counted(info.recordCount, "record") + "\n";
    text += info.headInfo.empty() ? "head info: none\n" : "head info:\n";
    for (const nolk::HeadInfo& entry : info.headInfo) text += "  " + headInfoText(entry) + "\n";
    return text;
}

// names are empty for files that give none.
std::string endsText(const ModelInfo& info, const char* kind, const std::vector<int>& places,
                     const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < places.size(); ++i)
        text += std::string(kind) + " " + std::to_string(i) +
                (names.empty() ? "" : " \"" + printable(names[i]) + "\"") + ": " +
                shapeText(operationAt(info, places[i]).output) + ", " + reference(info, places[i]) + "\n";
    return text;
}

std::string layerText(const ModelInfo& info, const ModelOperation& operation) {
    if (operation.layer < 0) return {};
    const std::string number = std::to_string(operation.layer + 1);
    return operation.isFused ? "in " + number
                             : number + " " + info.layers[static_cast<std::size_t>(operation.layer)].kind;
}

std::string operationsText(const ModelInfo& info) {
    Table table({{"record", true},
                 {"operation"},
                 {"details"},
                 {"inputs"},
                 {"output"},
                 {"parameters", true},
                 {"multiply-adds", true},
                 {"layer"}});
    for (const ModelOperation& operation : info.operations) {
        std::string inputs;
        for (const int place : operation.inputs) inputs += (inputs.empty() ? "" : " ") + reference(info, place);
        table.add({"#" + std::to_string(operation.record), operation.name, operation.details, inputs,
                   operation.isMade ? shapeText(operation.output) : "none", grouped(operation.parameterCount),
                   grouped(operation.multiplyAdds), layerText(info, operation)});
    }
    return table.text();
}

std::string measured(std::int64_t bytes) { return bytes < 0 ? "unknown" : bytesText(bytes); }

std::string totalsText(const ModelInfo& info) {
    const nolk::ModelTotals &before = info.beforeFusion, &after = info.afterFusion;
    Table table({{"total"}, {"before fusion", true}, {"after fusion", true}});
    const auto add = [&](const char* name, std::int64_t countBefore, std::int64_t countAfter) {
        table.add({name, grouped(countBefore), info.isBuilt ? grouped(countAfter) : "unknown"});
    };
    add("operations", before.operations, after.operations);
    add("parameters", before.parameters, after.parameters);
    add("multiply-adds", info.cost.multiplyAdds, info.cost.multiplyAdds);
    add("bytes of weights in memory", before.weightBytes, after.weightBytes);
    return table.text() + "\nweights in the file: " + bytesText(weightBytesInFile(info)) +
           "\narena: " + measured(info.arenaBytes) + "\nscratch: " + measured(info.scratchBytes) +
           "\npeak memory of this process, loading and one run: " + measured(info.peakBytes) + "\n" +
           (info.remark.empty() ? "" : info.remark + "\n");
}

Json orNull(bool isKnown, std::int64_t value) { return isKnown ? Json(value) : Json(nullptr); }

Json tensorsJson(const ModelInfo& info, const std::vector<int>& places, const std::vector<std::string>& names) {
    Json tensors = Json::array();
    for (std::size_t i = 0; i < places.size(); ++i) {
        const ModelOperation& operation = operationAt(info, places[i]);
        tensors.push_back({{"name", names.empty() ? Json(nullptr) : Json(names[i])},
                           {"record", operation.record},
                           {"shape", shapeJson(operation.output)},
                           {"dims", operation.output.dims}});
    }
    return tensors;
}

Json headInfoJson(const ModelInfo& info) {
    Json entries = Json::array();
    for (const nolk::HeadInfo& entry : info.headInfo)
        entries.push_back({{"key", entry.key}, {"length", entry.data.size()}, {"hex", hexText(entry.data)}});
    return entries;
}

Json operationJson(const ModelInfo& info, const ModelOperation& operation) {
    Json inputs = Json::array(), settings = Json::array();
    for (const int place : operation.inputs)
        inputs.push_back(place >= 0 ? Json(operationAt(info, place).record) : Json(nullptr));
    for (const nolk::ModelParameter& parameter : operation.parameters)
        settings.push_back({{"name", parameter.name}, {"values", parameter.values}});
    return {{"record", operation.record},
            {"operation", operation.name},
            {"details", operation.details},
            {"settings", settings},
            {"id", operation.id},
            {"offset", operation.offset},
            {"bytes", operation.bytes},
            {"inputs", inputs},
            {"output", operation.isMade ? shapeJson(operation.output) : Json(nullptr)},
            {"dims", orNull(operation.isMade, operation.output.dims)},
            {"parameters", operation.parameterCount},
            {"multiplyAdds", operation.multiplyAdds},
            {"weightBytesInFile", operation.weightBytesInFile},
            {"layer", orNull(operation.layer >= 0, operation.layer + 1)},
            {"fused", operation.isFused}};
}

Json layersJson(const ModelInfo& info) {
    Json layers = Json::array();
    for (const nolk::ModelLayer& layer : info.layers)
        layers.push_back({{"layer", layers.size() + 1},
                          {"kind", layer.kind},
                          {"record", operationAt(info, layer.operation).record},
                          {"output", shapeJson(layer.output)},
                          {"dims", layer.output.dims}});
    return layers;
}

Json totalsJson(const ModelInfo& info) {
    const nolk::ModelTotals &before = info.beforeFusion, &after = info.afterFusion;
    const auto both = [&info](std::int64_t countBefore, std::int64_t countAfter) {
        return Json{{"beforeFusion", countBefore}, {"afterFusion", orNull(info.isBuilt, countAfter)}};
    };
    return {{"operations", both(before.operations, after.operations)},
            {"parameters", both(before.parameters, after.parameters)},
            {"multiplyAdds", both(info.cost.multiplyAdds, info.cost.multiplyAdds)},
            {"weightBytesInMemory", both(before.weightBytes, after.weightBytes)},
            {"weightBytesInFile", weightBytesInFile(info)},
            {"arenaBytes", orNull(info.arenaBytes >= 0, info.arenaBytes)},
            {"scratchBytes", orNull(info.scratchBytes >= 0, info.scratchBytes)},
            {"peakBytes", orNull(info.peakBytes >= 0, info.peakBytes)}};
}

Json costJson(const nolk::ModelCost& cost) {
    return {{"tensorBytes", cost.tensorBytes},   {"weightBytes", cost.weightBytes},
            {"scratchBytes", cost.scratchBytes}, {"memoryBytes", cost.memoryBytes()},
            {"multiplyAdds", cost.multiplyAdds}, {"steps", cost.steps}};
}

}  // namespace

std::string infoText(const std::string& path, const ModelInfo& info) {
    return headText(path, info) + endsText(info, "input", info.inputs, info.inputNames) +
           endsText(info, "output", info.outputs, info.outputNames) + "\n" + operationsText(info) + "\n" +
           totalsText(info);
}

std::string infoJson(const std::string& path, const ModelInfo& info) {
    Json operations = Json::array();
    for (const ModelOperation& operation : info.operations) operations.push_back(operationJson(info, operation));
    return jsonText({{"path", path},
                     {"version", info.version},
                     {"bytes", info.fileBytes},
                     {"headInfo", headInfoJson(info)},
                     {"inputs", tensorsJson(info, info.inputs, info.inputNames)},
                     {"outputs", tensorsJson(info, info.outputs, info.outputNames)},
                     {"operations", operations},
                     {"layers", layersJson(info)},
                     {"totals", totalsJson(info)},
                     {"cost", costJson(info.cost)},
                     {"remark", info.remark.empty() ? Json(nullptr) : Json(info.remark)}});
}
