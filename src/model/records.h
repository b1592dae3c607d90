// Operation records: an op code and its fields, which become one call of the builder.
#pragma once

class RecordReader;

// Reads one record and makes its call, also when the data ends within the record. False then, and for an unknown op
// code, which is an error message.
bool readRecord(RecordReader& fields);
