// Reads the operation records of a model file and makes one call of the builder for each.
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
    std::vector<Argument> arguments;   // owners of their arrays: see RecordReader
};

// Reads all fields after the op code. Fields beyond the end of the data are 0, see RecordReader.
Record readRecord(const Operation& operation, RecordReader& reader);

// Looks up the inputs, makes the call and stores its result. A record that names an output adds it to the outputs.
void makeCall(const Record& record, RecordReader& reader);
