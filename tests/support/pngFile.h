// PNG files, written by hand, for tests: their data is stored, not compressed.
//   pngFile({2, 1, 8, 0}, std::string("\0\x0a\xf0", 3))  // a grey image of two pixels; the first byte of a row is its
//   filter
#pragma once

#include <cstdint>
#include <string>

#include "support/modelBytes.h"

struct PngHead {
    std::uint32_t columns, rows;
    char depth, colourType;  // 0 grey, 2 RGB, 3 palette, 4 grey and alpha, 6 RGB and alpha
    char interlaced = 0;
};

inline std::string bigEndian(std::uint32_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
    return bytes;
}

inline std::string pngChunk(const std::string& name, const std::string& data) {
    const std::string checked = name + data;
    return bigEndian(static_cast<std::uint32_t>(data.size())) + checked +
           bigEndian(slowCrc(Bytes(checked.begin(), checked.end()), checked.size()));
}

// One stored block in zlib's container. data has less than 64 KiB.
inline std::string zlibStored(const std::string& data) {
    std::uint32_t a = 1, b = 0;
    for (const char c : data) {
        a = (a + static_cast<unsigned char>(c)) % 65521;
        b = (b + a) % 65521;
    }
    const auto low = static_cast<char>(data.size() & 255), high = static_cast<char>(data.size() >> 8);
    const char head[] = {0x78, 0x01, 0x01, low, high, static_cast<char>(~low), static_cast<char>(~high)};
    return std::string(head, sizeof head) + data + bigEndian(b << 16 | a);
}

// chunks stand before the data: a palette, for example.
inline std::string pngFile(const PngHead& head, const std::string& rows, const std::string& chunks = "") {
    const std::string fields = {head.depth, head.colourType, 0, 0, head.interlaced};
    return "\x89PNG\r\n\x1a\n" + pngChunk("IHDR", bigEndian(head.columns) + bigEndian(head.rows) + fields) + chunks +
           pngChunk("IDAT", zlibStored(rows)) + pngChunk("IEND", "");
}
