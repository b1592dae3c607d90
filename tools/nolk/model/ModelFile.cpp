#include "nolk/model/ModelFile.h"

#include <algorithm>
#include <stdexcept>

#include "model/readFile.h"
#include "nolk/model/InputFile.h"
#include "nolk/model/StandardErrorCapture.h"
#include "nolk/onnx.h"

ModelFile::ModelFile(const std::string& path) : path_(path) {
    InputFile present(path);  // fails for what is no file, where the library would wait or tell less
    std::string begin(std::min<std::size_t>(kOnnxBeginBytes, static_cast<std::size_t>(present.left())), '\0');
    present.read(begin.data(), static_cast<std::int64_t>(begin.size()));
    if (looksLikeOnnx(path, begin)) present.fail(kOnnxAdvice);
    StandardErrorCapture quiet;
    bytes_ = readFile(path.c_str());
    const std::string message = quiet.take();
    if (!message.empty()) throw std::runtime_error(path + ": " + message.substr(0, message.find(": ")));
    open();
}

BinReader ModelFile::records() const {
    BinReader in(bytes_.data(), static_cast<int>(bytes_.size()));
    in.step(recordsBegin_);
    return in;
}

void ModelFile::report(bool isError, const char* place, std::int64_t offset, const std::string& text) {
    findings_.push_back({isError, place, offset, text});
}

void ModelFile::open() {
    if (bytes_.empty()) return report(true, "head", 0, "the file is empty");
    BinReader in(bytes_.data(), static_cast<int>(bytes_.size()));
    if (!checkHeadCM(in)) report(true, "head", 0, "the first two bytes must be \"CM\"");
    version_ = in.readShort();
    if (in.overflowed()) return report(true, "head", 0, "the file ends within its head");
    if (version_ < 1 || version_ > 4)
        return report(true, "version", 2, "must be 1 to 4, is " + std::to_string(version_));
    if (version_ >= 2) readHeadInfo(in);
    if (in.overflowed()) return report(true, "head info", kHeadBytes, "the file ends within it");
    if (isSealed()) unseal();
    const std::int64_t begin = offsetOf(in);
    recordCount_ = in.readShort();
    if (in.overflowed() || begin + 2 > recordsEnd())
        return report(true, "count", begin, "the file ends before the number of records");
    if (recordCount_ < 0) report(false, "count", begin, "negative, " + std::to_string(recordCount_));
    recordsBegin_ = begin + 2;
    hasRecords_ = true;
}

void ModelFile::readHeadInfo(BinReader& in) {
    headInfoLength_ = getHeadInfo(in, &headInfo_);
    std::int64_t offset = kHeadBytes;
    for (const HeadInfoEntry& entry : headInfo_) {
        if (entry.length < 0)
            report(false, "head info", offset,
                   "the entry of key " + std::to_string(entry.key) + " has a negative length, " +
                       std::to_string(entry.length));
        offset += 4 + std::max<std::int64_t>(entry.length, 0);
    }
}

void ModelFile::unseal() {
    const int size = static_cast<int>(bytes_.size());
    if (!checkCrc(bytes_.data(), size)) report(true, "checksum", recordsEnd(), "it is not that of the bytes before it");
    const std::int64_t body = std::max<std::int64_t>(kHeadBytes + headInfoLength_, 0);
    scramble(bytes_.data(), body, recordsEnd());
}
