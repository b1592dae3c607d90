// Drives a builder with a model file's records, one at a time, and tells of each where it stands.
//   RecordWalk walk(file, 1, builder);  while (walk.next()) use(walk.record());  builder.build(walk.model().outputs...)
// Borrows file and builder. Keeps standard error quiet as long as it lives.
#pragma once

#include <nolk.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/RecordReader.h"
#include "nolk/model/Finding.h"
#include "nolk/model/ModelFile.h"
#include "nolk/model/StandardErrorCapture.h"

struct Record {
    int number = 0;  // from 1
    int opCode = -1;
    std::string operation;             // "convolve"; "output" for one that names an output
    std::int64_t begin = 0, end = 0;   // in the file
    std::int64_t floatBytes = 0;       // of these, bytes that hold weights and the like
    std::vector<std::int16_t> inputs;  // ids
    bool hasOutput = false;
    std::int16_t output = 0;  // id
    std::string remark;       // what reading it has printed on standard error
    std::string failure;      // why it, and all behind it, cannot be read

    std::string place() const { return "record " + std::to_string(number) + " (" + operation + ")"; }
};

class RecordWalk {
public:
    RecordWalk(const ModelFile& file, int batch, nolk::RunnerBuilder& builder);

    // Reads the next record, which the builder then has had. False when there is none, or the last one had a failure.
    bool next();

    const Record& record() const { return record_; }
    Model& model() { return model_; }

private:
    void readIds(BinReader fields);
    void readFields();

    const ModelFile& file_;
    BinReader in_;
    Model model_;
    RecordReader fields_;
    Record record_;
    StandardErrorCapture quiet_;
};
