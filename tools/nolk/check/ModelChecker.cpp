#include "nolk/check/ModelChecker.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "builder/RawRunnerBuilder.h"
#include "builder/shapes.h"
#include "nolk/model/LoadedModel.h"
#include "nolk/model/NotingBuilder.h"
#include "nolk/model/counts.h"
#include "nolk/model/limits.h"
#include "nolk/words.h"

namespace {

// Damage in the middle of a file can make nonsense of all that follows.
constexpr std::size_t kMaxFindings = 200;

// Whether recording the operation is safe and cheap. The built-in implementation ends the process for a concat of
// nothing, copies floats that no data backs, and makes vectors for a normalisation that has none.
bool canBeRecorded(const Record& record, const NotedOperation* noted) {
    constexpr int kManyChannels = 1 << 24;
    if (!record.remark.empty()) return false;
    if (record.operation == "concat" && record.inputs.empty()) return false;
    return !noted || noted->name != "instanceNormalization" || noted->output.c <= kManyChannels;
}

}  // namespace

ModelChecker::ModelChecker(const ModelFile& file) : file_(file), findings_(file.findings()) {
    if (file_.hasRecords()) {
        readRecords();
        judge();
    }
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
}

void ModelChecker::report(bool isError, const Record& record, const std::string& text) {
    findings_.push_back({isError, record.place(), record.begin, text});
}

bool ModelChecker::hasErrors() const {
    return std::any_of(findings_.begin(), findings_.end(), [](const Finding& finding) { return finding.isError; });
}

void ModelChecker::readRecords() {
    NotingBuilder notes;
    RecordWalk walk(file_, 1, notes);
    bool isWhole = true;
    while (isWhole && walk.next()) {
        const Record& record = walk.record();
        isWhole = record.failure.empty() && findings_.size() < kMaxFindings;
        if (!record.failure.empty())
            report(true, record, record.failure);
        else
            noteRecord(record, record.hasOutput ? &notes.operations().back() : nullptr);
        walk.model().arrays.clear();  // notes keep none
    }
    if (findings_.size() >= kMaxFindings) report(true, walk.record(), "too many findings; what follows was left out");
    if (!isWhole) return;
    const std::int64_t end = walk.record().number > 0 ? walk.record().end : file_.offsetOf(file_.records());
    checkLeftOver(end);
    checkOutputs(end);
    checkUse();
    checkViews();
}

void ModelChecker::noteRecord(const Record& record, const NotedOperation* noted) {
    if (!record.remark.empty()) report(false, record, record.remark);
    if (record.end > file_.recordsEnd()) report(true, record, "it reaches into the checksum");
    if (canBeRecorded(record, noted) && readableRecords_ == record.number - 1) readableRecords_ = record.number;
    if (noted)
        noteResult(record, *noted);
    else
        noteOutput(record);
}

// The results that a record's inputs name; an id that names none is reported.
std::vector<int> ModelChecker::resultsOf(const Record& record) {
    std::vector<int> inputs;
    for (const std::int16_t id : record.inputs) {
        const auto found = latest_.find(id);
        inputs.push_back(found == latest_.end() ? -1 : found->second);
        if (inputs.back() < 0)
            report(true, record, "id " + std::to_string(id) + " is undefined: no record before has made it");
        else
            ++results_[static_cast<std::size_t>(inputs.back())].uses;
    }
    return inputs;
}

void ModelChecker::noteResult(const Record& record, const NotedOperation& noted) {
    Result result{record, noted, resultsOf(record)};
    for (const Doubt& doubt : noted.doubts) report(doubt.isError, record, doubt.text);
    const bool holdsNothing = noted.isMade && elementsOf(noted.output) == 0 && isRepresentable(noted.output);
    const bool isAlreadyKnown =
        std::any_of(result.inputs.begin(), result.inputs.end(), [this](int input) { return isEmpty(input); });
    if (holdsNothing && !isAlreadyKnown)
        report(false, record, "its result " + shapeText(noted.output) + " holds no values");
    const auto earlier = latest_.find(record.output);
    if (earlier != latest_.end())
        report(false, record,
               "id " + std::to_string(record.output) + " is made again, after " +
                   results_[static_cast<std::size_t>(earlier->second)].record.place());
    latest_[record.output] = static_cast<int>(results_.size());
    results_.push_back(std::move(result));
}

void ModelChecker::noteOutput(const Record& record) {
    const int place = resultsOf(record).front();
    outputs_.push_back(place);
    if (place < 0) return;
    Result& result = results_[static_cast<std::size_t>(place)];
    if (!result.noted.isMade)
        report(true, record, "an output must not depend on an undefined id, as " + result.record.place() + " does");
    if (result.isOutput) report(false, record, "id " + std::to_string(result.record.output) + " is an output already");
    result.isOutput = true;
}

bool ModelChecker::isEmpty(int result) const {
    return result >= 0 && elementsOf(results_[static_cast<std::size_t>(result)].noted.output) == 0;
}

void ModelChecker::checkLeftOver(std::int64_t end) {
    const std::int64_t left = file_.recordsEnd() - end;
    if (left > 0) findings_.push_back({false, "end", end, counted(left, "byte") + " left over behind the last record"});
}

void ModelChecker::checkOutputs(std::int64_t end) {
    if (results_.empty() && outputs_.empty())
        findings_.push_back({false, "end", end, "there are no records"});
    else if (outputs_.empty())
        findings_.push_back({false, "end", end, "no record names an output of the network"});
}

// Later records use earlier ones only, so one pass from the end finds all that outputs depend on.
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
        report(false, result.record, id + (result.uses == 0 ? ", is never used" : ", is used, but for no output"));
    }
}

// A reshape that copies nothing finds the elements only where it alone has taken over its input's memory.
void ModelChecker::checkViews() {
    for (const Result& result : results_) {
        if (!result.noted.isView || !result.noted.isMade) continue;
        const Result& source = results_[static_cast<std::size_t>(result.inputs.front())];
        if (source.noted.name == "constTensor")
            report(true, result.record, "layout nchw copies nothing, so its input must not be a constant");
        else if (source.uses > 1)
            report(true, result.record,
                   "layout nchw copies nothing, so its input must have no other use, but id " +
                       std::to_string(source.record.output) + " is used " + std::to_string(source.uses) + " times");
    }
}

// Each operation judges itself as soon as it is recorded. A batch normalisation, say, is absorbed only by build.
void ModelChecker::judge() {
    const std::unique_ptr<RawRunnerBuilder, Destroy> builder(new RawRunnerBuilder(nullptr));
    RecordWalk walk(file_, 1, *builder);
    while (walk.record().number < readableRecords_ && walk.next()) judgeRecord(walk.record(), walk.model());
    if (hasErrors()) return;
    std::vector<NotedOperation> operations;
    for (const Result& result : results_) operations.push_back(result.noted);
    if (readableRecords_ < file_.recordCount())
        remark_ = "the network was not built: a record is too large to be judged";
    else if (const std::string why = tooLargeToBuild(operations, outputs_); !why.empty())
        remark_ = "the network was not built: " + why;
    else
        build(walk.record(), *builder, walk.model());
}

void ModelChecker::judgeRecord(const Record& record, Model& model) {
    nolk::TensorX* const made = record.hasOutput ? model.tensors[record.output] : nullptr;
    if (!made) return;
    bool inputsAreGood = true;
    try {
        if (made->producer) {
            for (const nolk::TensorX* input : made->producer->inputs)
                inputsAreGood = inputsAreGood && isRepresentable(input->shape);
            made->producer->check();
        }
        // What is wrong with an input has been told.
        if (inputsAreGood && !isRepresentable(made->shape))
            report(true, record, "its result " + shapeText(made->shape) + " has more than 2^31 - 1 elements");
    } catch (const std::exception& e) {
        dropShapeDoubts(record);
        if (inputsAreGood) report(true, record, e.what());
    }
}

// What a record is refused for need not be told a second time.
void ModelChecker::dropShapeDoubts(const Record& record) {
    const auto result = std::find_if(results_.begin(), results_.end(),
                                     [&record](const Result& r) { return r.record.number == record.number; });
    if (result == results_.end()) return;
    for (const Doubt& doubt : result->noted.doubts) {
        const auto isDoubled = [&](const Finding& f) { return f.offset == record.begin && f.text == doubt.text; };
        if (doubt.isAboutShapes)
            findings_.erase(std::remove_if(findings_.begin(), findings_.end(), isDoubled), findings_.end());
    }
}

void ModelChecker::build(const Record& last, RawRunnerBuilder& builder, Model& model) {
    try {
        const std::unique_ptr<nolk::Runner, Destroy> runner(
            builder.build(model.outputs.data(), static_cast<int>(model.outputs.size())));
    } catch (const std::exception& e) {
        findings_.push_back({true, "network", last.end, e.what()});
    }
}
