// Checks a model file and collects everything that is wrong or suspicious in it.
//   ModelChecker checker(file, limits);  for (const nolk::ModelFinding& finding : checker.findings()) ...
// ModelFile has already checked the container. This class reads the records twice: first into an OperationLog, to find
// contradictions and unused results, then into the built-in builder, whose operations reject what they cannot compute.
// If there are no errors, it builds the network as loading would. It lists the first 200 errors and the first 200
// warnings, and says how many more there are.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "inspect/LoggedOperation.h"
#include "inspect/ModelFile.h"
#include "inspect/RecordWalk.h"

class RawRunnerBuilder;

class ModelChecker {
public:
    // Borrows the file during the call.
    ModelChecker(const ModelFile& file, const nolk::ModelLimits& limits);

    // In the order of their offsets.
    const std::vector<nolk::ModelFinding>& findings() const { return findings_; }

    // Why the network was not built although there are no errors; otherwise empty.
    const std::string& remark() const { return remark_; }

private:
    // A tensor that a record has made.
    struct Result {
        WalkedRecord record;
        LoggedOperation logged;
        std::vector<int> inputs;  // indices in results_; -1 for an undefined id
        int uses = 0;             // by later records, including those that name outputs
        bool isOutput = false;
        bool isNeeded = false;  // by an output
    };

    struct Count {
        std::int64_t listed = 0;  // in findings_
        std::int64_t notListed = 0;
    };

    void report(nolk::Severity severity, const WalkedRecord& record, const std::string& text);
    void add(const nolk::ModelFinding& finding);
    void addNotListed(nolk::Severity severity, std::int64_t count);
    void dropShapeDiagnostics(const WalkedRecord& record);
    Count& countOf(nolk::Severity severity);
    bool hasErrors() const { return errors_.listed + errors_.notListed > 0; }

    void readRecords();
    void logRecord(const WalkedRecord& record, const LoggedOperation* logged);
    void logResult(const WalkedRecord& record, const LoggedOperation& logged);
    void logOutput(const WalkedRecord& record);
    std::vector<int> resultsOf(const WalkedRecord& record);
    void checkLeftOver(std::int64_t end);
    void checkOutputs(std::int64_t end);
    void checkUse();
    void checkViews();
    bool isEmpty(int result) const;

    void checkWithBuilder();
    nolk::ModelCost takeCost();
    void checkOperation(const WalkedRecord& record, Model& model);
    void build(const WalkedRecord& last, RawRunnerBuilder& builder, Model& model);

    const ModelFile& file_;
    const nolk::ModelLimits limits_;
    std::vector<nolk::ModelFinding> findings_;
    Count errors_, warnings_;
    std::vector<Result> results_;
    std::map<std::int16_t, int> latest_;  // the index of the latest result with an id
    std::vector<int> outputs_;            // indices in results_
    int readableRecords_ = 0;             // the first records, which can be recorded safely
    std::string remark_;
};
