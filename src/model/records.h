// The operation records of a model file: fields in, one call of the builder out.
//   const Record record = readRecord(operation, reader);  makeCall(record, reader);
#pragma once

#include <cstdint>
#include <vector>

#include "model/Operation.h"

class RecordReader;

struct Record {
    const Operation* operation = nullptr;
    std::vector<std::int16_t> inputs;  // ids
    std::int16_t output = 0;           // id; 0 for a record that names an output of the network
    std::vector<Argument> arguments;   // whose arrays are the model's
};

// Reads all fields behind the op code. Where the data ends before them they are 0, see RecordReader.
Record readRecord(const Operation& operation, RecordReader& reader);

// Looks up the inputs, makes the call and stores its result; or adds the network's output that the record names.
void makeCall(const Record& record, RecordReader& reader);
