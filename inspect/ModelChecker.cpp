#include "inspect/ModelChecker.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "builder/RawRunnerBuilder.h"
#include "builder/shapes.h"
#include "inspect/OperationLog.h"
#include "inspect/counts.h"
#include "inspect/diagnostics.h"
#include "inspect/format.h"
#include "inspect/limits.h"
#include "model/operations.h"

using nolk::Severity;

namespace {

// Of each severity. A damaged file may give a finding for every record; all are counted, the first ones are listed.
constexpr std::int64_t kMaxListed = 200;

// Whether the built-in implementation can record the operation. It ends the process for a concat without inputs, and
// weights that could not be read have no meaning.
bool canBeRecorded(const WalkedRecord& record) {
    return record.remark.empty() && (record.operation->code != kCodeOf<&operation::concat> || !record.inputs.empty());
}

// Without what the checks do not need again, so that many results with many diagnostics take little memory.
LoggedOperation shortened(LoggedOperation logged) {
    logged.details = {};
    logged.parameters = {};
    std::vector<Diagnostic> aboutShapes;
    for (Diagnostic& diagnostic : logged.diagnostics)
        if (diagnostic.isAboutShapes) aboutShapes.push_back(std::move(diagnostic));
    logged.diagnostics = std::move(aboutShapes);
    return logged;
}

}  // namespace

ModelChecker::ModelChecker(const ModelFile& file, const nolk::ModelLimits& limits) : file_(file), limits_(limits) {
    for (const nolk::ModelFinding& finding : file_.findings()) add(finding);
    if (file_.hasRecords()) {
        readRecords();
        checkWithBuilder();
    }
    addNotListed(Severity::error, errors_.notListed);
    addNotListed(Severity::warning, warnings_.notListed);
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const nolk::ModelFinding& a, const nolk::ModelFinding& b) { return a.offset < b.offset; });
}

void ModelChecker::report(Severity severity, const WalkedRecord& record, const std::string& text) {
    add(record.finding(severity, text));
}

void ModelChecker::add(const nolk::ModelFinding& finding) {
    Count& count = countOf(finding.severity);
    if (count.listed == kMaxListed) {
        ++count.notListed;
        return;
    }
    findings_.push_back(finding);
    ++count.listed;
}

void ModelChecker::addNotListed(Severity severity, std::int64_t count) {
    const std::string what = severity == Severity::error ? "more error" : "more warning";
    if (count > 0) findings_.push_back({severity, 0, "end", file_.size(), counted(count, what) + ", not listed"});
}

ModelChecker::Count& ModelChecker::countOf(Severity severity) {
    return severity == Severity::error ? errors_ : warnings_;
}

void ModelChecker::readRecords() {
    OperationLog log;
    RecordWalk walk(file_, 1, log, Samples::one);
    bool isWhole = true;
    while (isWhole && walk.next()) {
        const WalkedRecord& record = walk.record();
        isWhole = record.failure.empty();
        if (!record.failure.empty())
            report(Severity::error, record, record.failure);
        else
            logRecord(record, record.hasOutput() ? &log.operations().back() : nullptr);
        walk.model().arrays.clear();  // the log keeps none
    }
    if (!isWhole) return;
    const std::int64_t end = walk.record().number > 0 ? walk.record().end : file_.offsetOf(file_.records());
    checkLeftOver(end);
    checkOutputs(end);
    checkUse();
    checkViews();
}

void ModelChecker::logRecord(const WalkedRecord& record, const LoggedOperation* logged) {
    if (!record.remark.empty()) report(Severity::error, record, record.remark);
    if (record.end > file_.recordsEnd()) report(Severity::error, record, "it reaches into the checksum");
    if (canBeRecorded(record) && readableRecords_ == record.number - 1) readableRecords_ = record.number;
    if (logged)
        logResult(record, *logged);
    else
        logOutput(record);
}

// The results that a record's input ids refer to. Reports ids that refer to none.
std::vector<int> ModelChecker::resultsOf(const WalkedRecord& record) {
    std::vector<int> inputs;
    for (const std::int16_t id : record.inputs) {
        const auto found = latest_.find(id);
        inputs.push_back(found == latest_.end() ? -1 : found->second);
        if (inputs.back() < 0)
            report(Severity::error, record, "id " + std::to_string(id) + " is undefined: no record before has made it");
        else
            ++results_[static_cast<std::size_t>(inputs.back())].uses;
    }
    return inputs;
}

void ModelChecker::logResult(const WalkedRecord& record, const LoggedOperation& logged) {
    Result result{record, shortened(logged), resultsOf(record)};
    for (const Diagnostic& diagnostic : logged.diagnostics)
        report(diagnostic.isError ? Severity::error : Severity::warning, record, diagnostic.text);
    const bool holdsNothing = logged.isMade && elementsOf(logged.output) == 0 && isRepresentable(logged.output);
    const bool isAlreadyKnown =
        std::any_of(result.inputs.begin(), result.inputs.end(), [this](int input) { return isEmpty(input); });
    if (holdsNothing && !isAlreadyKnown)
        report(Severity::warning, record, "its result " + shapeText(logged.output) + " holds no values");
    const auto earlier = latest_.find(record.output);
    if (earlier != latest_.end())
        report(Severity::warning, record,
               "id " + std::to_string(record.output) + " is made again, after " +
                   results_[static_cast<std::size_t>(earlier->second)].record.place());
    latest_[record.output] = static_cast<int>(results_.size());
    results_.push_back(std::move(result));
}

void ModelChecker::logOutput(const WalkedRecord& record) {
    const int place = resultsOf(record).front();
    outputs_.push_back(place);
    if (place < 0) return;
    Result& result = results_[static_cast<std::size_t>(place)];
    if (!result.logged.isMade)
        report(Severity::error, record,
               "an output must not depend on an undefined id, as " + result.record.place() + " does");
    if (result.isOutput)
        report(Severity::warning, record, "id " + std::to_string(result.record.output) + " is an output already");
    result.isOutput = true;
}

bool ModelChecker::isEmpty(int result) const {
    return result >= 0 && elementsOf(results_[static_cast<std::size_t>(result)].logged.output) == 0;
}

void ModelChecker::checkLeftOver(std::int64_t end) {
    const std::int64_t left = file_.recordsEnd() - end;
    if (left > 0) add({Severity::warning, 0, "end", end, counted(left, "byte") + " left over behind the last record"});
}

void ModelChecker::checkOutputs(std::int64_t end) {
    if (results_.empty() && outputs_.empty())
        add({Severity::warning, 0, "end", end, "there are no records"});
    else if (outputs_.empty())
        add({Severity::warning, 0, "end", end, "no record names an output of the network"});
}

// Records use results of earlier records only, so one pass from the end finds everything that the outputs depend on.
void ModelChecker::checkUse() {
    if (outputs_.empty()) return;
    for (auto result = results_.rbegin(); result != results_.rend(); ++result) {
        result->isNeeded = result->isNeeded || result->isOutput;
        if (!result->isNeeded) continue;
        for (const int input : result->inputs)
            if (input >= 0) results_[static_cast<std::size_t>(input)].isNeeded = true;
    }
    for (const Result& result : results_) {
        if (result.isNeeded) continue;
        const std::string id = "its result, id " + std::to_string(result.record.output);
        report(Severity::warning, result.record,
               id + (result.uses == 0 ? ", is never used" : ", is used, but for no output"));
    }
}

// A reshape that copies nothing gives correct elements only if its output uses the memory of its input. For that it
// must be the only user of its input.
void ModelChecker::checkViews() {
    for (const Result& result : results_) {
        if (!result.logged.isView || !result.logged.isMade) continue;
        const Result& source = results_[static_cast<std::size_t>(result.inputs.front())];
        const bool isConstant = source.logged.operation->code == kCodeOf<&operation::constTensor>;
        const std::string problem = viewProblem(isConstant, source.uses, source.record.output);
        if (!problem.empty()) report(Severity::error, result.record, problem);
    }
}

// Lets the built-in implementation check each operation as soon as it is recorded, before build fuses any of them.
void ModelChecker::checkWithBuilder() {
    const nolk::Owned<RawRunnerBuilder> builder(new RawRunnerBuilder(nullptr));
    RecordWalk walk(file_, 1, *builder);
    while (walk.record().number < readableRecords_ && walk.next()) {
        // The first reading succeeded, but the builder needs more memory.
        if (!walk.record().failure.empty()) return report(Severity::error, walk.record(), walk.record().failure);
        checkOperation(walk.record(), walk.model());
    }
    if (hasErrors()) return;
    if (const std::string why = refusal(takeCost(), limits_, "to be built"); !why.empty())
        remark_ = "the network was not built: " + why;
    else
        build(walk.record(), *builder, walk.model());
}

// Releases the results of reading, whose memory building may need.
nolk::ModelCost ModelChecker::takeCost() {
    std::vector<LoggedOperation> operations;
    for (Result& result : results_) operations.push_back(std::move(result.logged));
    results_ = {};
    return buildingCostOf(costOf(operations, outputs_), operations);
}

void ModelChecker::checkOperation(const WalkedRecord& record, Model& model) {
    nolk::TensorX* const made = record.hasOutput() ? model.tensors[record.output] : nullptr;
    if (!made) return;
    bool inputsAreGood = true;
    try {
        if (made->producer) {
            for (const nolk::TensorX* input : made->producer->inputs)
                inputsAreGood = inputsAreGood && isRepresentable(input->shape);
            made->producer->check();
        }
        // A problem with an input has already been reported.
        if (inputsAreGood && !isRepresentable(made->shape))
            report(Severity::error, record,
                   "its result " + shapeText(made->shape) + " has more than 2^31 - 1 elements");
    } catch (const std::exception& e) {
        dropShapeDiagnostics(record);
        if (inputsAreGood) report(Severity::error, record, e.what());
    }
}

// Removes warnings about shapes of a record that the built-in implementation rejects for the same reason.
void ModelChecker::dropShapeDiagnostics(const WalkedRecord& record) {
    const auto result = std::lower_bound(results_.begin(), results_.end(), record.number,
                                         [](const Result& r, int number) { return r.record.number < number; });
    if (result == results_.end() || result->record.number != record.number) return;
    for (const Diagnostic& diagnostic : result->logged.diagnostics) {
        const auto isDoubled = [&](const nolk::ModelFinding& f) {
            return f.offset == record.begin && f.text == diagnostic.text;
        };
        if (!diagnostic.isAboutShapes) continue;
        Count& count = countOf(diagnostic.isError ? Severity::error : Severity::warning);
        const auto kept = std::remove_if(findings_.begin(), findings_.end(), isDoubled);
        if (kept == findings_.end() && count.notListed > 0) --count.notListed;
        count.listed -= findings_.end() - kept;
        findings_.erase(kept, findings_.end());
    }
}

void ModelChecker::build(const WalkedRecord& last, RawRunnerBuilder& builder, Model& model) {
    try {
        const nolk::Owned<nolk::Runner> runner(
            builder.build(model.outputs.data(), static_cast<int>(model.outputs.size())));
    } catch (const std::exception& e) {
        add({Severity::error, 0, "network", last.end, e.what()});
    }
}
