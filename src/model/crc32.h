// The checksum at the end of a model file: CRC-32 as in Ethernet and zip archives.
#pragma once

#include <cstdint>

// Of length bytes; 0 for none.
std::uint32_t GetCRC32(const unsigned char* bytes, int length);
