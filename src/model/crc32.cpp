#include "model/crc32.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320u;

constexpr int kStep = 8;  // bytes that one pass of the loop processes

using Tables = std::array<std::array<std::uint32_t, 256>, kStep>;

// Slicing-by-8: entry i of table 0 is the remainder of the byte i, entry i of table k the remainder of the byte i with
// k zero bytes after it.
constexpr Tables init_CRC32_table() {
    Tables tables{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit) entry = (entry >> 1) ^ ((entry & 1u) ? kReflectedPolynomial : 0u);
        tables[0][i] = entry;
    }
    for (std::size_t k = 1; k < kStep; ++k)
        for (std::size_t i = 0; i < 256; ++i)
            tables[k][i] = (tables[k - 1][i] >> 8) ^ tables[0][tables[k - 1][i] & 0xFFu];
    return tables;
}

constexpr Tables CRC32_table = init_CRC32_table();

}  // namespace

std::uint32_t GetCRC32(const unsigned char* bytes, int length) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (; length >= kStep; length -= kStep, bytes += kStep) {
        std::uint32_t next = 0;
        for (std::size_t k = 0; k < kStep; ++k) {
            const std::uint32_t pending = k < 4 ? crc >> 8 * k : 0;
            next ^= CRC32_table[kStep - 1 - k][(pending ^ bytes[k]) & 0xFFu];
        }
        crc = next;
    }
    for (; length > 0; --length, ++bytes) crc = CRC32_table[0][(crc ^ *bytes) & 0xFFu] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}
