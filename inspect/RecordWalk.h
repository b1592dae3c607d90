// Reads the records of a model file one at a time, makes their calls of a builder, and tells where each record is.
//   RecordWalk walk(file, 1, builder);  while (walk.next()) use(walk.record());  builder.build(walk.model().outputs...)
// Borrows file and builder.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/MessageCollector.h"
#include "inspect/ModelFile.h"
#include "model/Operation.h"
#include "model/RecordReader.h"

struct WalkedRecord {
    int number = 0;                        // from 1
    const Operation* operation = nullptr;  // null for an op code that no operation has
    std::int64_t begin = 0, end = 0;       // in the file
    std::int64_t floatBytes = 0;           // bytes of the record that hold weights and other arrays
    std::vector<std::int16_t> inputs;      // ids
    std::int16_t output = 0;               // id
    std::string remark;                    // warnings of the reader
    std::string failure;                   // why this record, and all after it, cannot be read

    // Whether it makes a tensor; if not, it names an output of the network.
    bool hasOutput() const { return operation && operation->call; }
    std::string name() const { return operation ? operation->name : "?"; }
    std::string place() const { return "record " + std::to_string(number) + " (" + name() + ")"; }
    nolk::ModelFinding finding(nolk::Severity severity, const std::string& text) const {
        return {severity, number, name(), begin, text};
    }
};

class RecordWalk {
public:
    RecordWalk(const ModelFile& file, int batch, nolk::RunnerBuilder& builder, Samples samples = Samples::all);

    // Reads the next record and makes its call. False when there is none, or when the previous one had a failure.
    bool next();

    // Reads all remaining records; throws nolk::ModelError if one has a failure.
    void finish();

    const WalkedRecord& record() const { return record_; }
    Model& model() { return model_; }

private:
    void readRecord();

    const ModelFile& file_;
    MessageCollector messages_;
    BinReader in_;
    Model model_;
    RecordReader fields_;
    WalkedRecord record_;
};
