#include "model/crc32.h"

#include <array>

namespace {

constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320u;

using Table = std::array<std::uint32_t, 256>;

// Entry i is what eight steps of the division make of the byte i.
constexpr Table init_CRC32_table() {
    Table table{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t entry = i;
        for (int bit = 0; bit < 8; ++bit) entry = (entry >> 1) ^ ((entry & 1u) ? kReflectedPolynomial : 0u);
        table[i] = entry;
    }
    return table;
}

constexpr Table CRC32_table = init_CRC32_table();

}  // namespace

std::uint32_t GetCRC32(const unsigned char* bytes, int length) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (int i = 0; i < length; ++i) crc = CRC32_table[(crc ^ bytes[i]) & 0xFFu] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}
