#include "inspect/ModelRecords.h"

#include "inspect/OperationLog.h"
#include "inspect/RecordWalk.h"
#include "inspect/diagnostics.h"
#include "inspect/limits.h"

namespace {

nolk::ModelOperation operationOf(const WalkedRecord& record, const LoggedOperation& logged) {
    nolk::ModelOperation operation;
    operation.record = record.number;
    operation.code = record.operation->code;
    operation.name = record.operation->name;
    operation.details = logged.details;
    operation.parameters = logged.parameters;
    operation.id = record.output;
    operation.offset = record.begin;
    operation.bytes = record.end - record.begin;
    operation.inputs = logged.inputs;
    operation.isMade = logged.isMade;
    operation.output = logged.output;
    operation.parameterCount = logged.parameterCount;
    operation.weightBytesInFile = record.floatBytes;
    operation.multiplyAdds = logged.multiplyAdds;
    return operation;
}

}  // namespace

void requirePositive(int batch) {
    if (batch < 1) throw nolk::ModelError("the batch must be at least 1, is " + std::to_string(batch));
}

ModelRecords::ModelRecords(const ModelFile& file, int batch) {
    file.requireReadable();
    OperationLog log;
    RecordWalk walk(file, batch, log, Samples::one);
    while (walk.next()) {
        const WalkedRecord& record = walk.record();
        walk.model().arrays.clear();  // the log keeps none
        if (record.failure.empty() && !record.remark.empty() && meaningless_.empty())
            meaningless_ = record.place() + ": " + record.remark;
        if (record.failure.empty() && record.end > file.recordsEnd() && meaningless_.empty())
            meaningless_ = record.place() + ": it reaches into the checksum";
        if (!record.hasOutput() || !record.failure.empty()) continue;
        const LoggedOperation& logged = log.operations().back();
        operations_.push_back(operationOf(record, logged));
        for (const Diagnostic& diagnostic : logged.diagnostics)
            if (diagnostic.isError && meaningless_.empty()) meaningless_ = record.place() + ": " + diagnostic.text;
    }
    walk.finish();
    for (const nolk::TensorX* output : walk.model().outputs) {
        if (!output)
            throw nolk::ModelError("output " + std::to_string(outputs_.size()) + " depends on an undefined id");
        outputs_.push_back(log.placeOf(output));
    }
    cost_ = costOf(log.operations(), outputs_);
    buildingCost_ = buildingCostOf(cost_, log.operations());
    if (meaningless_.empty()) meaningless_ = brokenView(log.operations());
}

// A reshape that copies nothing needs its input's memory for itself.
std::string ModelRecords::brokenView(const std::vector<LoggedOperation>& logged) const {
    std::vector<int> uses(operations_.size());
    for (const nolk::ModelOperation& operation : operations_)
        for (const int input : operation.inputs)
            if (input >= 0) ++uses[static_cast<std::size_t>(input)];
    for (const int output : outputs_) ++uses[static_cast<std::size_t>(output)];
    for (std::size_t i = 0; i < operations_.size(); ++i) {
        if (!logged[i].isView || !logged[i].isMade) continue;
        const auto source = static_cast<std::size_t>(operations_[i].inputs.front());
        const std::string problem =
            viewProblem(operations_[source].name == "constTensor", uses[source], operations_[source].id);
        if (!problem.empty())
            return "record " + std::to_string(operations_[i].record) + " (" + operations_[i].name + "): " + problem;
    }
    return {};
}
