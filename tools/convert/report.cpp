#include "convert/report.h"

#include <cmath>

#include "convert/onnx/text.h"

namespace convert {

namespace {

using nlohmann::ordered_json;

ordered_json operationsOf(const Conversion& conversion) {
    std::map<std::string, int> counts;
    for (const std::string& name : conversion.operations) ++counts[name];
    ordered_json json = ordered_json::object();
    for (const auto& [name, count] : counts) json[name] = count;
    return json;
}

std::string textOf(const ordered_json& json) {
    return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

// JSON has no infinity.
ordered_json numberOf(double value) { return std::isfinite(value) ? ordered_json(value) : ordered_json(nullptr); }

}  // namespace

std::string describe(const Finding& finding) {
    std::string text = finding.node.empty() ? "" : "node " + inQuotes(finding.node);
    if (!finding.type.empty()) text += (text.empty() ? "(" : " (") + finding.type + ")";
    text += (text.empty() ? "" : ": ") + finding.why;
    return finding.advice.empty() ? text : text + "; " + finding.advice;
}

std::string failureReport(const std::string& in, const std::string& out, const std::string& error) {
    return textOf({{"input", in}, {"output", out}, {"converted", false}, {"error", error}});
}

Report::Report(const std::string& in, const std::string& out, const Conversion& conversion) {
    json_["input"] = in;
    json_["output"] = out;
    json_["converted"] = conversion.findings.empty();
    json_["bytes"] = conversion.file.bytes.size();
    json_["remarks"] = conversion.remarks;
    json_["operations"] = operationsOf(conversion);
    json_["inputs"] = ordered_json::array();
    for (const TensorPlace& place : conversion.file.inputs)
        json_["inputs"].push_back({{"name", place.name}, {"shape", conversion.inputDims.at(place.name)}});
    json_["outputs"] = ordered_json::array();
    for (const TensorPlace& place : conversion.file.outputs)
        json_["outputs"].push_back({{"name", place.name}, {"batchAxis", place.batchAxis}});
    json_["findings"] = ordered_json::array();
    for (const Finding& f : conversion.findings)
        json_["findings"].push_back({{"node", f.node}, {"operator", f.type}, {"why", f.why}, {"advice", f.advice}});
    json_["unseenNodes"] = conversion.unseenNodes;
}

void Report::setCheck(const CheckResult& result) {
    json_["converted"] = result.passed;
    ordered_json outputs = ordered_json::array();
    for (const OutputDifference& output : result.outputs)
        outputs.push_back(
            {{"name", output.name}, {"absolute", numberOf(output.absolute)}, {"relative", numberOf(output.relative)}});
    json_["check"] = {{"passed", result.passed}, {"failure", result.failure}, {"outputs", outputs}};
}

std::string Report::text() const { return textOf(json_); }

}  // namespace convert
