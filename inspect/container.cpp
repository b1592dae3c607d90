#include "inspect/container.h"

#include <array>
#include <climits>
#include <cstdint>
#include <stdexcept>
#include <string>

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

// Entry i is the remainder of the byte i.
constexpr std::array<std::uint32_t, 256> remainders() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        table[i] = i;
        for (int bit = 0; bit < 8; ++bit) table[i] = (table[i] >> 1) ^ ((table[i] & 1u) ? 0xEDB88320u : 0u);
    }
    return table;
}

// CRC-32 as in Ethernet and zip archives, byte by byte.
std::uint32_t crc32(const Bytes& bytes) {
    static constexpr std::array<std::uint32_t, 256> kRemainders = remainders();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const unsigned char byte : bytes) crc = (crc >> 8) ^ kRemainders[(crc ^ byte) & 255u];
    return ~crc;
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
    constexpr std::size_t kCountAndChecksum = 6;
    file.reserve(body + records.size() + kCountAndChecksum);
    append16(file, recordCount);
    file.insert(file.end(), records.begin(), records.end());
    if (options.version >= 3) {
        for (std::size_t i = body; i < file.size(); ++i) file[i] ^= static_cast<unsigned char>(i);
        append(file, crc32(file), 4);
    }
    if (file.size() > INT_MAX) throw std::out_of_range("file: larger than 2 GiB");
    return file;
}
