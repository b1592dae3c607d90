// The operation records of a model file: what to read behind each op code, and which call of the builder to make of it.
//   if (const Record record = recordOf(opCode)) record(fields);
#pragma once

class RecordReader;

// Reads the fields behind an op code and makes the call, also when the data ends before the fields do.
using Record = void (*)(RecordReader& fields);

// Null for an op code that no operation has.
Record recordOf(int opCode);
