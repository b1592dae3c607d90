// A model file whose container has been read and whose records have been unscrambled.
//   ModelFile file(bytes, size);  if (file.hasRecords()) ... file.records()
// Does the same steps as the library's reader, but goes on where that gives up, and collects findings. The bytes are
// borrowed; a scrambled file is copied.
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

    // Whether there are records to read; if not, a finding says why.
    bool hasRecords() const { return hasRecords_; }
    int recordCount() const { return recordCount_; }

    // A cursor at the first record. As in the library's reader, it can also read the checksum after the records.
    BinReader records(ErrorSink* errors = nullptr) const;

    // The offset in the file of a cursor from records(); the file's end once the cursor has overflowed.
    std::int64_t offsetOf(const BinReader& cursor) const { return size_ - cursor.remaining(); }

    // Returns the memory of the unscrambled copy below this offset to the system. Nobody may read there any more.
    // Offsets must not decrease from call to call.
    void releaseBefore(std::int64_t offset);

    // The offset where the records must end: at the checksum, or at the file's end.
    std::int64_t recordsEnd() const { return size_ - (isScrambled() ? kCrcBytes : 0); }

private:
    bool isScrambled() const { return version_ == 3 || version_ == 4; }
    void open();
    void readHeadInfo(BinReader& in);
    void checkSum();
    void unscramble();
    void report(nolk::Severity severity, const char* part, std::int64_t offset, const std::string& text);

    const unsigned char* data_;
    int size_ = 0;
    std::vector<unsigned char> unscrambled_;
    std::uintptr_t released_ = 0;  // bytes of it
    int version_ = 0;
    std::vector<HeadInfoEntry> headInfo_;
    std::int64_t headInfoLength_ = 0;  // as getHeadInfo returns it
    std::int64_t recordsBegin_ = 0;
    int recordCount_ = 0;
    bool hasRecords_ = false;
    std::vector<nolk::ModelFinding> findings_;
};
