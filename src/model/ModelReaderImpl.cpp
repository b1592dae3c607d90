#include "model/ModelReaderImpl.h"

#include <algorithm>
#include <exception>
#include <string>
#include <vector>

#include "model/RecordReader.h"
#include "model/container.h"
#include "model/operations.h"
#include "model/readFile.h"
#include "model/records.h"

nolk::Runner* ModelReaderImpl::readFromFile(nolk::RunnerBuilder* builder, int batch, const char* path) {
    if (!builder || !path) return nullptr;
    std::vector<unsigned char> bytes = readFile(path, errors_);
    if (bytes.empty()) return nullptr;
    return readFromMemory(builder, batch, bytes.data(), static_cast<int>(bytes.size()));
}

nolk::Runner* ModelReaderImpl::readFromMemory(nolk::RunnerBuilder* builder, int batch, void* data, int size) {
    if (batch < 1 || !data || !builder) return nullptr;
    batch_ = batch;
    builder_ = builder;
    BinReader in(data, size, &errors_);
    if (!checkHeadCM(in, errors_)) return nullptr;
    version_ = in.readShort();
    if (version_ == 1) return readFromVersion1(in);
    if (version_ == 2) return readFromVersion2(in);
    if (version_ == 3 || version_ == 4) return readFromVersion3(in, static_cast<unsigned char*>(data), size);
    errors_.error("unknown ver: " + std::to_string(version_));
    return nullptr;
}

// The checksum covers the scrambled bytes, so it is checked first. The body is then unscrambled in place for reading,
// and scrambled again afterwards.
nolk::Runner* ModelReaderImpl::readFromVersion3(BinReader& in, unsigned char* data, int size) {
    if (!checkCrc(data, size, errors_)) return nullptr;
    // With negative lengths in the head info the sum may be negative, but the body cannot begin before the data.
    const std::int64_t body = std::max<std::int64_t>(kHeadBytes + getHeadInfo(in), 0);
    scramble(data, body, size - kCrcBytes);
    // The data for records includes the checksum. Its end decides which calls the builder gets before a truncated file
    // fails, and these calls should not change. If a record throws, the body stays unscrambled, as nolk.h says.
    BinReader plain(data + kHeadBytes, size - kHeadBytes, &errors_);
    nolk::Runner* runner = readFromVersion2(plain);
    scramble(data, body, size - kCrcBytes);
    return runner;
}

nolk::Runner* ModelReaderImpl::readFromVersion2(BinReader& in) {
    getHeadInfo(in);
    return readFromVersion1(in);
}

nolk::Runner* ModelReaderImpl::readFromVersion1(BinReader& in) { return readOps(in) ? build() : nullptr; }

bool ModelReaderImpl::readOps(BinReader& in) {
    RecordReader fields(in, version_, batch_, *builder_, model_);
    const int count = fields.i16();
    for (int i = 0; i < count; ++i)
        if (!readOp(fields)) return false;
    return true;
}

bool ModelReaderImpl::readOp(RecordReader& fields) {
    const int opCode = fields.i16();
    const Operation* const operation = findOperation(opCode);
    if (!operation) {
        errors_.error("unknown op: " + std::to_string(opCode));
        return false;
    }
    makeCall(readRecord(*operation, fields), fields);
    return !fields.overflowed();
}

nolk::Runner* ModelReaderImpl::build() {
    try {
        return builder_->build(model_.outputs.data(), static_cast<int>(model_.outputs.size()));
    } catch (const std::exception& e) {
        errors_.error(e.what());
        return nullptr;
    }
}
