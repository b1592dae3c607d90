// The checksum at the end of a model file: CRC-32 as in Ethernet and zip archives.
#pragma once

#include <cstdint>

// The checksum of length bytes; 0 when length is 0.
std::uint32_t GetCRC32(const unsigned char* bytes, int length);
