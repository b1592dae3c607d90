#include "inspect/ModelFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "inspect/MessageCollector.h"

using nolk::Severity;

namespace {

// Every four bytes of a damaged head may give a finding.
constexpr std::size_t kMaxHeadFindings = 100;

}  // namespace

ModelFile::ModelFile(const void* data, std::size_t size) : data_(static_cast<const unsigned char*>(data)) {
    if (!data) size = 0;
    size_ = static_cast<int>(std::min<std::size_t>(size, INT_MAX));
    if (size > INT_MAX)
        report(Severity::error, "head", 0, "the file is larger than 2 GiB");
    else
        open();
}

void ModelFile::requireReadable() const {
    for (const nolk::ModelFinding& finding : findings_)
        if (finding.severity == Severity::error) throw nolk::ModelError(describe(finding));
}

BinReader ModelFile::records(ErrorSink* errors) const {
    BinReader in(unscrambled_.empty() ? data_ : unscrambled_.data(), size_, errors);
    in.step(recordsBegin_);
    return in;
}

void ModelFile::report(Severity severity, const char* part, std::int64_t offset, const std::string& text) {
    findings_.push_back({severity, 0, part, offset, text});
}

void ModelFile::open() {
    if (size_ == 0) return report(Severity::error, "head", 0, "the file is empty");
    MessageCollector messages;  // not used: the findings say the same with an offset
    BinReader in(data_, size_);
    if (!checkHeadCM(in, messages)) report(Severity::error, "head", 0, "the first two bytes must be \"CM\"");
    version_ = in.readShort();
    if (in.overflowed()) return report(Severity::error, "head", 0, "the file ends within its head");
    if (version_ < 1 || version_ > 4)
        return report(Severity::error, "version", 2, "must be 1 to 4, is " + std::to_string(version_));
    if (version_ >= 2) readHeadInfo(in);
    const bool endsInHeadInfo = in.overflowed();
    if (endsInHeadInfo) report(Severity::error, "head info", kHeadBytes, "the file ends within it");
    if (isScrambled() && !endsInHeadInfo) checkSum();
    if (isScrambled()) unscramble();
    // The library reads the head info once more when the body is unscrambled. Where lengths in it are negative, the
    // body begins within it, and the second reading comes to another end.
    recordsBegin_ = kHeadBytes;
    BinReader body = records();
    if (version_ >= 2) getHeadInfo(body);
    if (endsInHeadInfo && body.overflowed()) return;
    const std::int64_t begin = version_ >= 2 ? offsetOf(body) : kHeadBytes;
    recordsBegin_ = begin;
    body = records();
    recordCount_ = body.readShort();
    if (body.overflowed() || begin + 2 > recordsEnd())
        return report(Severity::error, "count", begin, "the file ends before the number of records");
    if (recordCount_ < 0) report(Severity::warning, "count", begin, "negative, " + std::to_string(recordCount_));
    recordsBegin_ = begin + 2;
    hasRecords_ = true;
}

void ModelFile::readHeadInfo(BinReader& in) {
    headInfoLength_ = getHeadInfo(in, &headInfo_);
    std::int64_t offset = kHeadBytes;
    for (const HeadInfoEntry& entry : headInfo_) {
        if (entry.length < 0 && findings_.size() < kMaxHeadFindings)
            report(Severity::warning, "head info", offset,
                   "the entry of key " + std::to_string(entry.key) + " has a negative length, " +
                       std::to_string(entry.length));
        offset += 4 + std::max<std::int64_t>(entry.length, 0);
    }
}

void ModelFile::checkSum() {
    MessageCollector messages;
    if (!checkCrc(data_, size_, messages))
        report(Severity::error, "checksum", recordsEnd(), "it is not that of the bytes before it");
}

void ModelFile::unscramble() {
    unscrambled_.assign(data_, data_ + size_);
    const std::int64_t body = std::max<std::int64_t>(kHeadBytes + headInfoLength_, 0);
    scramble(unscrambled_.data(), body, recordsEnd());
}

void ModelFile::releaseBefore(std::int64_t offset) {
    if (unscrambled_.empty()) return;
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<std::uintptr_t>(unscrambled_.data());
    const auto begin = std::max((page - address % page) % page, released_);
    const auto bytes = static_cast<std::uintptr_t>(std::clamp<std::int64_t>(offset, 0, size()));
    const auto end = bytes - std::min((address + bytes) % page, bytes);
    if (begin >= end) return;
    madvise(unscrambled_.data() + begin, end - begin, MADV_DONTNEED);
    released_ = end;
}
