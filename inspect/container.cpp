#include "inspect/container.h"

#include <climits>
#include <cstdint>
#include <stdexcept>
#include <string>

#include "model/container.h"
#include "model/crc32.h"

namespace {

constexpr std::size_t kMaxInt16 = 32767;

using Bytes = std::vector<unsigned char>;

void append(Bytes& file, std::uint32_t value, int size) {
    for (int i = 0; i < size; ++i) file.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void append16(Bytes& file, int value) { append(file, static_cast<std::uint32_t>(value), 2); }

void appendHeadInfo(Bytes& file, const std::vector<nolk::HeadInfo>& entries) {
    for (const nolk::HeadInfo& entry : entries) {
        append16(file, entry.key);
        append16(file, static_cast<int>(entry.data.size()));
        file.insert(file.end(), entry.data.begin(), entry.data.end());
    }
    append16(file, 0);
}

}  // namespace

void checkOptions(const nolk::ModelFileOptions& options) {
    if (options.version < 1 || options.version > 4)
        throw std::out_of_range("file: versions are 1 to 4, not " + std::to_string(options.version));
    if (options.version == 1 && !options.headInfo.empty())
        throw std::out_of_range("file: version 1 has no place for head info");
    for (const nolk::HeadInfo& entry : options.headInfo) {
        if (entry.key == 0 || entry.key < INT16_MIN || entry.key > INT16_MAX)
            throw std::out_of_range("head info: a key is a 16-bit number other than 0, not " +
                                    std::to_string(entry.key));
        if (entry.data.size() > kMaxInt16)
            throw std::out_of_range("head info: an entry holds at most 32767 bytes, not " +
                                    std::to_string(entry.data.size()));
    }
}

Bytes modelFile(const nolk::ModelFileOptions& options, int recordCount, const Bytes& records) {
    checkOptions(options);
    if (recordCount < 0 || recordCount > INT16_MAX)
        throw std::out_of_range("file: at most 32767 records, not " + std::to_string(recordCount));
    Bytes file = {'C', 'M'};
    append16(file, options.version);
    if (options.version >= 2) appendHeadInfo(file, options.headInfo);
    const std::size_t body = file.size();
    constexpr std::size_t kCountBytes = 2;
    std::size_t size = body + kCountBytes + records.size();
    if (options.version >= 3) size += kCrcBytes;
    if (size > INT_MAX) throw std::out_of_range("file: larger than 2 GiB");
    file.reserve(size);
    append16(file, recordCount);
    file.insert(file.end(), records.begin(), records.end());
    if (options.version >= 3) {
        for (std::size_t i = body; i < file.size(); ++i) file[i] ^= static_cast<unsigned char>(i);
        append(file, GetCRC32(file.data(), static_cast<int>(file.size())), kCrcBytes);
    }
    return file;
}
