#include "inspect/RecordWalk.h"

#include <exception>
#include <new>

#include "model/operations.h"
#include "model/records.h"

RecordWalk::RecordWalk(const ModelFile& file, int batch, nolk::RunnerBuilder& builder, Samples samples)
    : file_(file), in_(file.records(&messages_)), fields_(in_, file.version(), batch, builder, model_, samples) {}

bool RecordWalk::next() {
    if (!file_.hasRecords() || record_.number >= file_.recordCount() || !record_.failure.empty()) return false;
    const int number = record_.number + 1;
    record_ = {};
    record_.number = number;
    record_.begin = file_.offsetOf(in_);
    const std::int64_t floatBytes = fields_.floatBytes();
    try {
        readRecord();
    } catch (const std::bad_array_new_length&) {
        record_.failure = "a count of floats is negative or above 2^31 - 1";
    } catch (const std::bad_alloc&) {
        record_.failure = "not enough memory for its floats";
    } catch (const std::exception& e) {
        record_.failure = e.what();
    }
    record_.remark = messages_.take();
    record_.end = file_.offsetOf(in_);
    record_.floatBytes = fields_.floatBytes() - floatBytes;
    return true;
}

void RecordWalk::finish() {
    while (next()) {
    }
    if (!record_.failure.empty())
        throw nolk::ModelError(describe(record_.finding(nolk::Severity::error, record_.failure)));
}

void RecordWalk::readRecord() {
    const int code = fields_.i16();
    record_.operation = findOperation(code);
    if (!record_.operation) {
        record_.failure =
            "unknown op code " + std::to_string(code) + ", so where the next record begins cannot be told";
        return;
    }
    const Record record = ::readRecord(*record_.operation, fields_);
    record_.inputs = record.inputs;
    record_.output = record.output;
    if (fields_.overflowed()) {
        record_.failure = "the file ends within it";
        return;  // its arrays may be announced to be as long as can be
    }
    makeCall(record, fields_);
}
