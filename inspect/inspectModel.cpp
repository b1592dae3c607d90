#include <utility>

#include "inspect/BuiltNetwork.h"
#include "inspect/ModelRecords.h"
#include "inspect/counts.h"
#include "inspect/entryPoints.h"
#include "inspect/limits.h"

namespace {

std::vector<nolk::HeadInfo> headInfoOf(const ModelFile& file) {
    std::vector<nolk::HeadInfo> entries;
    for (const HeadInfoEntry& entry : file.headInfo()) {
        entries.push_back({entry.key, {}});
        if (entry.data && entry.length > 0) entries.back().data.assign(entry.data, entry.data + entry.length);
    }
    return entries;
}

// docs/model-format.md
constexpr int kInputName = 1, kOutputName = 2;

std::vector<std::string> namesOf(const nolk::ModelInfo& info, int key, std::size_t count) {
    std::vector<std::string> names;
    for (const nolk::HeadInfo& entry : info.headInfo)
        if (entry.key == key) names.emplace_back(entry.data.begin(), entry.data.end());
    if (names.size() != count) names.clear();
    return names;
}

nolk::ModelTotals totalsOf(const std::vector<nolk::ModelOperation>& operations) {
    nolk::ModelTotals totals;
    for (const nolk::ModelOperation& operation : operations) {
        if (operation.name != "input" && operation.name != "constTensor") ++totals.operations;
        totals.parameters = sumOf(totals.parameters, operation.parameterCount);
    }
    totals.weightBytes = productOf({totals.parameters, sizeof(float)});
    return totals;
}

// These two say why the network should not be built, and why it should not be run; empty if it should.
std::string whyNotBuilt(const ModelRecords& records, const nolk::InspectionOptions& options) {
    if (options.depth == nolk::InspectionDepth::records) return "not built: only the records were asked for";
    // Building could already end the process.
    const std::string why = records.meaningless().empty()
                                ? refusal(records.buildingCost(), options.limits, "to be built")
                                : records.meaningless();
    return why.empty() ? "" : "not built: " + why;
}

std::string whyNotRun(const ModelRecords& records, const nolk::InspectionOptions& options) {
    if (options.depth != nolk::InspectionDepth::run) return "not run: only building was asked for";
    const std::string why = refusal(records.cost(), options.limits);
    return why.empty() ? "" : "not run: " + why;
}

}  // namespace

nolk::ModelInfo inspectFile(const void* data, std::size_t size, const nolk::InspectionOptions& options) {
    requirePositive(options.batch);
    ModelFile file(data, size);
    const ModelRecords records(file, options.batch);
    nolk::ModelInfo info;
    info.version = file.version();
    info.fileBytes = file.size();
    info.recordCount = file.recordCount();
    info.headInfo = headInfoOf(file);
    info.operations = records.operations();
    for (std::size_t i = 0; i < info.operations.size(); ++i)
        if (info.operations[i].name == "input") info.inputs.push_back(static_cast<int>(i));
    info.outputs = records.outputs();
    info.inputNames = namesOf(info, kInputName, info.inputs.size());
    info.outputNames = namesOf(info, kOutputName, info.outputs.size());
    info.cost = records.cost();
    info.beforeFusion = totalsOf(info.operations);

    info.remark = whyNotBuilt(records, options);
    if (!info.remark.empty()) return info;
    BuiltNetwork network(file, options.batch);
    network.describe(info);
    info.remark = whyNotRun(records, options);
    if (info.remark.empty()) network.runOnce(info);
    return info;
}
