// Reads a model file as a verifier would, and collects everything that is wrong or suspicious in it.
//   ModelChecker checker(file);  for (const Finding& finding : checker.findings()) ...
// The container was looked at when the file was opened. Here the records are walked twice: with a builder that takes
// notes, which finds what contradicts itself and what nothing uses, and with the built-in one, whose operations refuse
// what they cannot carry out. If all of that holds, the network is built as loading would build it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "nolk/model/Finding.h"
#include "nolk/model/ModelFile.h"
#include "nolk/model/NotedOperation.h"
#include "nolk/model/RecordWalk.h"

class RawRunnerBuilder;

class ModelChecker {
public:
    // Borrows the file during the call.
    explicit ModelChecker(const ModelFile& file);

    // In the order of their offsets.
    const std::vector<Finding>& findings() const { return findings_; }

    // Why the built-in implementation was not asked, though nothing was wrong; empty when it was.
    const std::string& remark() const { return remark_; }

private:
    // A tensor that a record has made.
    struct Result {
        Record record;
        NotedOperation noted;
        std::vector<int> inputs;  // results; -1 for an id without one
        int uses = 0;             // by later records, outputs among them
        bool isOutput = false;
        bool isNeeded = false;  // by an output
    };

    void report(bool isError, const Record& record, const std::string& text);
    void dropShapeDoubts(const Record& record);
    bool hasErrors() const;

    void readRecords();
    void noteRecord(const Record& record, const NotedOperation* noted);
    void noteResult(const Record& record, const NotedOperation& noted);
    void noteOutput(const Record& record);
    std::vector<int> resultsOf(const Record& record);
    void checkLeftOver(std::int64_t end);
    void checkOutputs(std::int64_t end);
    void checkUse();
    void checkViews();
    bool isEmpty(int result) const;

    void judge();
    void judgeRecord(const Record& record, Model& model);
    void build(const Record& last, RawRunnerBuilder& builder, Model& model);

    const ModelFile& file_;
    std::vector<Finding> findings_;
    std::vector<Result> results_;
    std::map<std::int16_t, int> latest_;  // the result that an id names
    std::vector<int> outputs_;            // results
    int readableRecords_ = 0;             // that the second walk can go through
    std::string remark_;
};
