#include "inspect/ModelRecords.h"

#include "inspect/OperationLog.h"
#include "inspect/RecordWalk.h"
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

ModelRecords::ModelRecords(const ModelFile& file, int batch) {
    file.requireReadable();
    OperationLog log;
    RecordWalk walk(file, batch, log);
    while (walk.next()) {
        const WalkedRecord& record = walk.record();
        walk.model().arrays.clear();  // the log keeps none
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
}
