// A model file with its container opened: what stands around the records is known, the records are unscrambled.
//   ModelFile file(bytes, size);  if (file.hasRecords()) ... file.records()
// Follows the library's reader step by step, but goes on where that gives up, and collects findings instead. The bytes
// are borrowed; only of a scrambled file there is a copy.
#pragma once

#include <nolk_model.h>

#include <cstdint>
#include <string>
#include <vector>

#include "model/BinReader.h"
#include "model/container.h"

class ModelFile {
public:
    ModelFile(const void* data, std::size_t size);
    ModelFile(const ModelFile&) = delete;
    ModelFile& operator=(const ModelFile&) = delete;

    std::int64_t size() const { return size_; }
    int version() const { return version_; }
    const std::vector<HeadInfoEntry>& headInfo() const { return headInfo_; }
    const std::vector<nolk::ModelFinding>& findings() const { return findings_; }

    // Throws nolk::ModelError with the first error among the findings.
    void requireReadable() const;

    // Whether there are records to be read; if not, a finding tells why.
    bool hasRecords() const { return hasRecords_; }
    int recordCount() const { return recordCount_; }

    // A cursor at the first record. As the library has it, the checksum belongs to what records can read.
    BinReader records(ErrorSink* errors = nullptr) const;

    // Where a cursor that records() gave stands; the file's end once it has overflowed.
    std::int64_t offsetOf(const BinReader& cursor) const { return size_ - cursor.remaining(); }

    // Where the records have to end: at the checksum, or at the file's end.
    std::int64_t recordsEnd() const { return size_ - (isSealed() ? kCrcBytes : 0); }

private:
    bool isSealed() const { return version_ == 3 || version_ == 4; }
    void open();
    void readHeadInfo(BinReader& in);
    void unseal();
    void report(nolk::Severity severity, const char* part, std::int64_t offset, const std::string& text);

    const unsigned char* data_;
    int size_ = 0;
    std::vector<unsigned char> unscrambled_;
    int version_ = 0;
    std::vector<HeadInfoEntry> headInfo_;
    std::int64_t headInfoLength_ = 0;  // as the library counts it
    std::int64_t recordsBegin_ = 0;
    int recordCount_ = 0;
    bool hasRecords_ = false;
    std::vector<nolk::ModelFinding> findings_;
};
