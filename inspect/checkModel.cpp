#include "inspect/ModelChecker.h"
#include "inspect/entryPoints.h"

std::string nolk::describe(const ModelFinding& finding) {
    const std::string place = finding.record > 0
                                  ? "record " + std::to_string(finding.record) + " (" + finding.operation + ")"
                                  : finding.operation;
    return place + " at byte " + std::to_string(finding.offset) +
           (finding.severity == Severity::error ? ": error: " : ": warning: ") + finding.text;
}

nolk::ModelCheck checkFile(const void* data, std::size_t size, const nolk::ModelLimits& limits) {
    const ModelFile file(data, size);
    const ModelChecker checker(file, limits);
    return {checker.findings(), file.version(), file.hasRecords() ? file.recordCount() : -1, checker.remark()};
}
