#include "fuzz/Outline.h"

#include <algorithm>

#include "inspect/ModelFile.h"
#include "inspect/OperationLog.h"
#include "inspect/RecordWalk.h"
#include "inspect/limits.h"
#include "model/operations.h"

namespace {

bool endsProcess(const LoggedOperation& logged) {
    if (logged.operation->code == kCodeOf<&operation::concat>) return logged.inputs.empty();
    for (const nolk::ModelParameter& parameter : logged.parameters)
        if (parameter.name == "mode") return parameter.values.front() != 1 && parameter.values.front() != 2;
    return false;
}

}  // namespace

Outline outlineOf(const void* data, std::size_t size, int batch) {
    const ModelFile file(data, size);
    if (!file.hasRecords()) return {};
    OperationLog log;
    RecordWalk walk(file, batch, log, Samples::one);
    while (walk.next()) walk.model().arrays.clear();
    Outline outline = outlineOf(log, walk.model().outputs);
    // The log has no call of a record that the file ends within, but the library makes it.
    const Operation* const last = walk.record().operation;
    if (!walk.record().failure.empty() && last && last->code == kCodeOf<&operation::concat>) outline.isHarmless = false;
    return outline;
}

Outline outlineOf(const OperationLog& log, const std::vector<nolk::TensorX*>& outputs) {
    Outline outline;
    const std::vector<LoggedOperation>& operations = log.operations();
    for (const LoggedOperation& logged : operations)
        if (logged.operation->code == kCodeOf<&nolk::RunnerBuilder::input>) outline.inputs.push_back(logged.output);
    std::vector<int> places;
    for (const nolk::TensorX* output : outputs) {
        places.push_back(log.placeOf(output));
        if (output) outline.outputs.push_back(operations[static_cast<std::size_t>(places.back())].output);
    }
    outline.isHarmless = std::none_of(operations.begin(), operations.end(), endsProcess) &&
                         refusal(costOf(operations, places), kSmall).empty();
    return outline;
}
