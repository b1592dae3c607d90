// A model file with its container opened: what stands around the records is known, the records are unscrambled.
//   ModelFile file("digits.cm");  if (file.hasRecords()) ... file.records()
// Follows the library's reader step by step, but goes on where that gives up, and collects findings instead.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/BinReader.h"
#include "model/container.h"
#include "nolk/model/Finding.h"

class ModelFile {
public:
    // Throws std::runtime_error, "path: why", for a file that cannot be read, and for an ONNX model.
    explicit ModelFile(const std::string& path);
    ModelFile(const ModelFile&) = delete;
    ModelFile& operator=(const ModelFile&) = delete;

    const std::string& path() const { return path_; }
    std::int64_t size() const { return static_cast<std::int64_t>(bytes_.size()); }
    int version() const { return version_; }
    const std::vector<HeadInfoEntry>& headInfo() const { return headInfo_; }
    const std::vector<Finding>& findings() const { return findings_; }

    // Whether there are records to be read; if not, a finding tells why.
    bool hasRecords() const { return hasRecords_; }
    int recordCount() const { return recordCount_; }

    // A cursor at the first record. As the library has it, the checksum belongs to what records can read.
    BinReader records() const;

    // Where a cursor that records() gave stands; the file's end once it has overflowed.
    std::int64_t offsetOf(const BinReader& cursor) const { return size() - cursor.remaining(); }

    // Where the records have to end: at the checksum, or at the file's end.
    std::int64_t recordsEnd() const { return size() - (isSealed() ? kCrcBytes : 0); }

private:
    bool isSealed() const { return version_ == 3 || version_ == 4; }
    void open();
    void readHeadInfo(BinReader& in);
    void unseal();
    void report(bool isError, const char* place, std::int64_t offset, const std::string& text);

    std::string path_;
    std::vector<unsigned char> bytes_;
    int version_ = 0;
    std::vector<HeadInfoEntry> headInfo_;
    std::int64_t headInfoLength_ = 0;  // as the library counts it
    std::int64_t recordsBegin_ = 0;
    int recordCount_ = 0;
    bool hasRecords_ = false;
    std::vector<Finding> findings_;
};
