#include "model/ModelReaderImpl.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <vector>

#include "model/RecordReader.h"
#include "model/crc32.h"
#include "model/readFile.h"
#include "model/records.h"
#include "model/reportError.h"

namespace {

constexpr int kHeadBytes = 4;  // "CM" and the version
constexpr int kCrcBytes = 4;

bool checkHeadCM(BinReader& in) {
    char head[3] = {};
    in.read(head, 2);
    if (std::strcmp(head, "CM") == 0) return true;
    reportError("wrong head: %s", head);
    return false;
}

// Skips the head info block: entries of a key, a length and that many bytes, up to a key of 0. Its length in bytes.
// Deliberate: a negative length counts with its sign, though nothing can be skipped for it.
std::int64_t getHeadInfo(BinReader& in) {
    std::int64_t total = 0;
    while (in.readShort() != 0) {
        const int length = in.readShort();
        in.step(length);
        total += 4 + length;
    }
    return total + 2;
}

bool checkCrc(const unsigned char* data, int size) {
    const int covered = size - kCrcBytes;
    std::uint32_t expected;
    std::memcpy(&expected, data + covered, sizeof expected);
    if (GetCRC32(data, covered) == expected) return true;
    reportError("model verify failed: wrong crc32");
    return false;
}

// Scrambles the bytes from begin to end, or restores them: the key is the offset in the file.
void scramble(unsigned char* data, std::int64_t begin, std::int64_t end) {
    for (std::int64_t i = begin; i < end; ++i) data[i] ^= static_cast<unsigned char>(i);
}

}  // namespace

nolk::Runner* ModelReaderImpl::readFromFile(nolk::RunnerBuilder* builder, int batch, const char* path) {
    if (!builder || !path) return nullptr;
    std::vector<unsigned char> bytes = readFile(path);
    if (bytes.empty()) return nullptr;
    return readFromMemory(builder, batch, bytes.data(), static_cast<int>(bytes.size()));
}

nolk::Runner* ModelReaderImpl::readFromMemory(nolk::RunnerBuilder* builder, int batch, void* data, int size) {
    if (batch < 1 || !data || !builder) return nullptr;
    batch_ = batch;
    builder_ = builder;
    BinReader in(data, size);
    if (!checkHeadCM(in)) return nullptr;
    version_ = in.readShort();
    if (version_ == 1) return readFromVersion1(in);
    if (version_ == 2) return readFromVersion2(in);
    if (version_ == 3 || version_ == 4) return readFromVersion3(in, static_cast<unsigned char*>(data), size);
    reportError("unknown ver: %d", version_);
    return nullptr;
}

// Checks the checksum, which covers the bytes as they are stored, and reads the body unscrambled in place.
nolk::Runner* ModelReaderImpl::readFromVersion3(BinReader& in, unsigned char* data, int size) {
    if (!checkCrc(data, size)) return nullptr;
    // Negative lengths in the head info must not put the body in front of the data.
    const std::int64_t body = std::max<std::int64_t>(kHeadBytes + getHeadInfo(in), 0);
    scramble(data, body, size - kCrcBytes);
    // Deliberate: the trailer belongs to what records can read, and an exception out of a record leaves the body
    // unscrambled.
    BinReader plain(data + kHeadBytes, size - kHeadBytes);
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
        if (!readRecord(fields)) return false;
    return true;
}

nolk::Runner* ModelReaderImpl::build() {
    try {
        return builder_->build(model_.outputs.data(), static_cast<int>(model_.outputs.size()));
    } catch (const std::exception& e) {
        reportError("%s", e.what());
        return nullptr;
    }
}
