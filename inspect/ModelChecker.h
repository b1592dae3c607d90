// Reads a model file as a verifier would, and collects everything that is wrong or suspicious in it.
//   ModelChecker checker(file, limits);  for (const nolk::ModelFinding& finding : checker.findings()) ...
// The container was looked at when the file was opened. Here the records are walked twice: with a builder that takes
// operation log, which finds what contradicts itself and what nothing uses, and with the built-in one, whose operations
// refuse what they cannot carry out. If all of that holds, the network is built as loading would build it.
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

    // Why the built-in implementation was not asked, though nothing was wrong; empty when it was.
    const std::string& remark() const { return remark_; }

private:
    // A tensor that a record has made.
    struct Result {
        WalkedRecord record;
        LoggedOperation logged;
        std::vector<int> inputs;  // results; -1 for an id without one
        int uses = 0;             // by later records, outputs among them
        bool isOutput = false;
        bool isNeeded = false;  // by an output
    };

    void report(nolk::Severity severity, const WalkedRecord& record, const std::string& text);
    void dropShapeDiagnostics(const WalkedRecord& record);
    bool hasErrors() const;

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

    void judge();
    void judgeRecord(const WalkedRecord& record, Model& model);
    void build(const WalkedRecord& last, RawRunnerBuilder& builder, Model& model);

    const ModelFile& file_;
    const nolk::ModelLimits limits_;
    std::vector<nolk::ModelFinding> findings_;
    std::vector<Result> results_;
    std::map<std::int16_t, int> latest_;  // the result that an id names
    std::vector<int> outputs_;            // results
    int readableRecords_ = 0;             // that the second walk can go through
    std::string remark_;
};
