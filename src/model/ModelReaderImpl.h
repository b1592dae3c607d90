// Reads model files: head, version, head info, checksum and scrambling around a list of operation records.
// docs/model-format.md has the tables. Every record becomes one call of the builder (records.cpp), then build is
// called. Use a new reader for each model: a reader keeps the tensors and outputs of its first load, and a second load
// would use them and add to them.
#pragma once

#include <nolk.h>

#include <cstdint>

#include "model/BinReader.h"
#include "model/ErrorSink.h"
#include "model/Model.h"

class RecordReader;

class ModelReaderImpl final : public nolk::ModelReader {
public:
    // errors must outlive the reader.
    explicit ModelReaderImpl(ErrorSink& errors) : errors_(errors) {}

    nolk::Runner* readFromFile(nolk::RunnerBuilder* builder, int batch, const char* path) override;
    nolk::Runner* readFromMemory(nolk::RunnerBuilder* builder, int batch, void* data, int size) override;
    void destroy() override { delete this; }

    // Reads one record, op code and fields, and makes its call of the builder. Returns false when the data ended within
    // the record, and for an unknown op code, which it reports as an error.
    bool readOp(RecordReader& fields);

private:
    nolk::Runner* readFromVersion1(BinReader& in);
    nolk::Runner* readFromVersion2(BinReader& in);
    nolk::Runner* readFromVersion3(BinReader& in, unsigned char* data, int size);
    bool readOps(BinReader& in);
    nolk::Runner* build();

    ErrorSink& errors_;

    // Of the current load.
    int batch_ = 0;
    nolk::RunnerBuilder* builder_ = nullptr;
    int version_ = 0;

    Model model_;
};
