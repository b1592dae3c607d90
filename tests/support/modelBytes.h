// Model files made by hand, for tests: with no code of the library's or the writer's, so that a shared mistake shows.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

// Bytes written as "43 4d 0100": blanks do not count. "f(1.5)" is a float.
inline Bytes hex(const std::string& text) {
    Bytes bytes;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == ' ' || text[i] == '\n') {
            ++i;
        } else if (text[i] == 'f' && i + 1 < text.size() && text[i + 1] == '(') {
            const std::size_t end = text.find(')', i);
            const float value = std::stof(text.substr(i + 2, end - i - 2));
            unsigned char raw[4];
            std::memcpy(raw, &value, 4);
            bytes.insert(bytes.end(), raw, raw + 4);
            i = end + 1;
        } else {
            bytes.push_back(static_cast<unsigned char>(std::stoi(text.substr(i, 2), nullptr, 16)));
            i += 2;
        }
    }
    return bytes;
}

inline std::uint32_t slowCrc(const Bytes& bytes, std::size_t count) {
    std::uint32_t crc = 0xFFFFFFFFu;
    for (std::size_t i = 0; i < count * 8; ++i) {
        const std::uint32_t bit = (bytes[i / 8] >> (i % 8)) & 1u;
        crc = (crc & 1u) != bit ? (crc >> 1) ^ 0xEDB88320u : crc >> 1;
    }
    return ~crc;
}

// Puts the right checksum into the last four bytes.
inline void reseal(Bytes& file) {
    const std::uint32_t crc = slowCrc(file, file.size() - 4);
    for (std::size_t i = 0; i < 4; ++i) file[file.size() - 4 + i] = static_cast<unsigned char>(crc >> (8 * i));
}

// A file around `body`, which is the record count and the records; headInfo has its closing key.
inline Bytes container(int version, const Bytes& headInfo, const Bytes& body) {
    Bytes file = {'C', 'M', static_cast<unsigned char>(version), 0};
    if (version >= 2)
        for (const unsigned char byte : headInfo) file.push_back(byte);
    const std::size_t begin = file.size();
    for (const unsigned char byte : body) file.push_back(byte);
    if (version < 3) return file;
    for (std::size_t i = begin; i < file.size(); ++i) file[i] = static_cast<unsigned char>(file[i] ^ (i % 256));
    file.resize(file.size() + 4);
    reseal(file);
    return file;
}

// input [2, 3, 4] as id 0, prelu with slopes 0.5 and -2 as id 1, output 1. Written by hand; the checksums come from
// another implementation.
constexpr const char* kGolden[] = {
    // version 1: dimensions of 16 bits
    "434d 0100 0300"
    "0000 0200 0300 0400 0000"
    "2300 0000 0100 0200 0000003f 000000c0"
    "1600 0100",
    // version 2: head info (key 7, "abc"), dimensions of 32 bits
    "434d 0200 0700 0300 616263 0000 0300"
    "0000 02000000 03000000 04000000 0000"
    "2300 0000 0100 0200 0000003f 000000c0"
    "1600 0100",
    // version 3: scrambled, with a checksum
    "434d 0300 0000 0507"
    "0809 080b0c0d 0d0f1011 16131415 1617"
    "3b19 1a1b 1d1d 1c1f 2021221c 242526e7"
    "3e29 2b2b  db7a04c4",
    // version 4: floats in a form that begins with a byte
    "434d 0400 0700 0300 616263 0000 0e0e"
    "0f10 13121314 16161718 1d1a1b1c 1d1e"
    "3c20 2122 2224 2726 27 28292a14 2c2d2eef"
    "2631 3333  38a7c0eb"};
