#include "nolk/info/infoReport.h"

#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

#include "nolk/Table.h"
#include "inspect/counts.h"
#include "nolk/shapeJson.h"
#include "inspect/format.h"

namespace {

using Json = nlohmann::ordered_json;

constexpr int kShownHeadInfoBytes = 32;

struct Totals {
    std::int64_t operationsBefore = 0, operationsAfter = 0;
    std::int64_t parametersBefore = 0, parametersAfter = 0;
    std::int64_t multiplyAdds = 0;
    std::int64_t weightBytesInFile = 0;
};

bool computes(const ExaminedOperation& operation) {
    return operation.noted.name != "input" && operation.noted.name != "constTensor";
}

Totals totalsOf(const ExaminedModel& model) {
    Totals totals;
    for (const ExaminedOperation& operation : model.operations()) {
        if (computes(operation)) ++totals.operationsBefore;
        totals.parametersBefore = sumOf(totals.parametersBefore, operation.noted.parameters);
        totals.parametersAfter = sumOf(totals.parametersAfter, operation.parametersKept);
        totals.multiplyAdds = sumOf(totals.multiplyAdds, operation.noted.multiplyAdds);
        totals.weightBytesInFile += operation.record.floatBytes;
    }
    totals.operationsAfter = static_cast<std::int64_t>(model.factories().size());
    return totals;
}

std::int64_t floatBytes(std::int64_t floats) { return productOf({floats, sizeof(float)}); }

std::string hexText(const unsigned char* bytes, int count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

// Text where it is text, else bytes.
std::string shownBytes(const HeadInfoEntry& entry) {
    const int length = std::max<int>(entry.length, 0);
    if (length == 0 || !entry.data) return {};
    const int shown = std::min(length, kShownHeadInfoBytes);
    const bool isText =
        std::all_of(entry.data, entry.data + length, [](unsigned char c) { return c >= 0x20 && c < 0x7F; });
    std::string text = isText ? "\"" + std::string(entry.data, entry.data + shown) + "\"" : hexText(entry.data, shown);
    if (shown < length) text += "...";
    return ": " + text;
}

const ExaminedOperation& operationAt(const ExaminedModel& model, int place) {
    return model.operations()[static_cast<std::size_t>(place)];
}

int numberOf(const ExaminedModel& model, int place) { return place < 0 ? 0 : operationAt(model, place).record.number; }

std::string reference(const ExaminedModel& model, int place) {
    return place < 0 ? "none" : "#" + std::to_string(numberOf(model, place));
}

std::string headText(const ExaminedModel& model) {
    const ModelFile& file = model.file();
    std::string text = printable(file.path()) + ": version " + std::to_string(file.version()) + ", " +
                       bytesText(file.size()) + ", " + counted(file.recordCount(), "record") + "\n";
    if (file.headInfo().empty()) return text + "head info: none\n";
    text += "head info:\n";
    for (const HeadInfoEntry& entry : file.headInfo())
        text += "  key " + std::to_string(entry.key) + ", " + counted(entry.length, "byte") + shownBytes(entry) + "\n";
    return text;
}

std::string endsText(const ExaminedModel& model) {
    std::string text;
    int input = 0;
    for (const ExaminedOperation& operation : model.operations())
        if (operation.noted.name == "input")
            text += "input " + std::to_string(input++) + ": " + shapeText(operation.noted.output) + ", #" +
                    std::to_string(operation.record.number) + "\n";
    for (std::size_t i = 0; i < model.outputs().size(); ++i)
        text += "output " + std::to_string(i) + ": " + shapeText(operationAt(model, model.outputs()[i]).noted.output) +
                ", " + reference(model, model.outputs()[i]) + "\n";
    return text;
}

std::string layerText(const ExaminedModel& model, const ExaminedOperation& operation) {
    if (operation.layer < 0) return {};
    if (operation.isFused) return "in " + std::to_string(operation.layer + 1);
    return std::to_string(operation.layer + 1) + " " +
           model.runner()->layers()[static_cast<std::size_t>(operation.layer)]->desc;
}

std::string operationsText(const ExaminedModel& model) {
    Table table({{"record", true},
                 {"operation"},
                 {"details"},
                 {"inputs"},
                 {"output"},
                 {"parameters", true},
                 {"multiply-adds", true},
                 {"layer"}});
    for (const ExaminedOperation& operation : model.operations()) {
        std::string inputs;
        for (const int place : operation.noted.inputs) inputs += (inputs.empty() ? "" : " ") + reference(model, place);
        table.add({"#" + std::to_string(operation.record.number), operation.noted.name, operation.noted.details, inputs,
                   operation.noted.isMade ? shapeText(operation.noted.output) : "none",
                   grouped(operation.noted.parameters), grouped(operation.noted.multiplyAdds),
                   layerText(model, operation)});
    }
    return table.text();
}

std::string measured(std::int64_t bytes) { return bytes < 0 ? "unknown" : bytesText(bytes); }

std::string totalsText(const ExaminedModel& model) {
    const Totals totals = totalsOf(model);
    const bool isBuilt = model.runner() != nullptr;
    const auto after = [isBuilt](std::int64_t count) { return isBuilt ? grouped(count) : "unknown"; };
    Table table({{"total"}, {"before fusion", true}, {"after fusion", true}});
    table.add({"operations", grouped(totals.operationsBefore), after(totals.operationsAfter)});
    table.add({"parameters", grouped(totals.parametersBefore), after(totals.parametersAfter)});
    table.add({"multiply-adds", grouped(totals.multiplyAdds), after(totals.multiplyAdds)});
    table.add({"bytes of weights in memory", grouped(floatBytes(totals.parametersBefore)),
               after(floatBytes(totals.parametersAfter))});
    return table.text() + "\nweights in the file: " + bytesText(totals.weightBytesInFile) +
           "\narena: " + measured(model.memory().arenaBytes) + "\nscratch: " + measured(model.memory().scratchBytes) +
           "\npeak memory of this process, loading and one run: " + measured(model.memory().peakBytes) + "\n" +
           (model.remark().empty() ? "" : model.remark() + "\n");
}

Json orNull(bool isKnown, std::int64_t value) { return isKnown ? Json(value) : Json(nullptr); }

Json tensorJson(const ExaminedModel& model, int place) {
    const nolk::TensorShape& shape = operationAt(model, place).noted.output;
    return {{"record", numberOf(model, place)}, {"shape", shapeJson(shape)}, {"dims", shape.dims}};
}

Json operationJson(const ExaminedModel& model, const ExaminedOperation& operation) {
    Json inputs = Json::array();
    for (const int place : operation.noted.inputs) inputs.push_back(orNull(place >= 0, numberOf(model, place)));
    const Record& record = operation.record;
    Json json = {{"record", record.number},
                 {"operation", operation.noted.name},
                 {"details", operation.noted.details},
                 {"id", record.output},
                 {"offset", record.begin},
                 {"bytes", record.end - record.begin},
                 {"inputs", inputs}};
    json["output"] = operation.noted.isMade ? shapeJson(operation.noted.output) : Json(nullptr);
    json["dims"] = operation.noted.isMade ? Json(operation.noted.output.dims) : Json(nullptr);
    json["parameters"] = operation.noted.parameters;
    json["multiplyAdds"] = operation.noted.multiplyAdds;
    json["weightBytesInFile"] = record.floatBytes;
    json["layer"] = orNull(operation.layer >= 0, operation.layer + 1);
    json["fused"] = operation.isFused;
    return json;
}

Json layersJson(const ExaminedModel& model) {
    Json layers = Json::array();
    if (!model.runner()) return layers;
    for (std::size_t i = 0; i < model.runner()->layers().size(); ++i) {
        const Layer& layer = *model.runner()->layers()[i];
        const nolk::TensorShape shape = layer.getOutputTensor().shape;
        layers.push_back({{"layer", i + 1},
                          {"kind", layer.desc},
                          {"record", numberOf(model, model.operationOfLayer(static_cast<int>(i)))},
                          {"output", shapeJson(shape)},
                          {"dims", shape.dims}});
    }
    return layers;
}

Json totalsJson(const ExaminedModel& model) {
    const Totals totals = totalsOf(model);
    const bool isBuilt = model.runner() != nullptr;
    const auto both = [isBuilt](std::int64_t before, std::int64_t after) {
        return Json{{"beforeFusion", before}, {"afterFusion", orNull(isBuilt, after)}};
    };
    const MemoryUse& memory = model.memory();
    return {{"operations", both(totals.operationsBefore, totals.operationsAfter)},
            {"parameters", both(totals.parametersBefore, totals.parametersAfter)},
            {"multiplyAdds", both(totals.multiplyAdds, totals.multiplyAdds)},
            {"weightBytesInMemory", both(floatBytes(totals.parametersBefore), floatBytes(totals.parametersAfter))},
            {"weightBytesInFile", totals.weightBytesInFile},
            {"arenaBytes", orNull(memory.arenaBytes >= 0, memory.arenaBytes)},
            {"scratchBytes", orNull(memory.scratchBytes >= 0, memory.scratchBytes)},
            {"peakBytes", orNull(memory.peakBytes >= 0, memory.peakBytes)}};
}

}  // namespace

std::string infoText(const ExaminedModel& model) {
    return headText(model) + endsText(model) + "\n" + operationsText(model) + "\n" + totalsText(model);
}

std::string infoJson(const ExaminedModel& model) {
    const ModelFile& file = model.file();
    Json headInfo = Json::array(), inputs = Json::array(), outputs = Json::array(), operations = Json::array();
    for (const HeadInfoEntry& entry : file.headInfo())
        headInfo.push_back({{"key", entry.key},
                            {"length", entry.length},
                            {"hex", hexText(entry.data, entry.data ? std::max<int>(entry.length, 0) : 0)}});
    for (std::size_t i = 0; i < model.operations().size(); ++i) {
        if (model.operations()[i].noted.name == "input") inputs.push_back(tensorJson(model, static_cast<int>(i)));
        operations.push_back(operationJson(model, model.operations()[i]));
    }
    for (const int place : model.outputs()) outputs.push_back(tensorJson(model, place));
    Json json = {{"path", file.path()},        {"version", file.version()},
                 {"bytes", file.size()},       {"headInfo", headInfo},
                 {"inputs", inputs},           {"outputs", outputs},
                 {"operations", operations},   {"layers", layersJson(model)},
                 {"totals", totalsJson(model)}};
    json["remark"] = model.remark().empty() ? Json(nullptr) : Json(model.remark());
    return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}
