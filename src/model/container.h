// What stands around the records of a model file: head, head info, checksum and scrambling. ModelReaderImpl puts them
// together; programs that examine files use them one by one. docs/model-format.md has the tables.
#pragma once

#include <cstdint>
#include <vector>

#include "model/BinReader.h"
#include "model/ErrorSink.h"

constexpr int kHeadBytes = 4;  // "CM" and the version
constexpr int kCrcBytes = 4;

struct HeadInfoEntry {
    std::int16_t key = 0;
    std::int16_t length = 0;              // as it stands in the file, where it should not be negative
    const unsigned char* data = nullptr;  // borrowed from the file; null where that ends before
};

// Whether the first two bytes are "CM"; if not, that is an error.
bool checkHeadCM(BinReader& in, ErrorSink& errors);

// Skips the head info block: entries of a key, a length and that many bytes, up to a key of 0. Its length in bytes.
// The entries are added to those given, if any.
std::int64_t getHeadInfo(BinReader& in, std::vector<HeadInfoEntry>* entries = nullptr);

// Whether the last four of size bytes, at least four, are the checksum of those before; if not, an error.
bool checkCrc(const unsigned char* data, int size, ErrorSink& errors);

// Scrambles the bytes from begin to end, or restores them: each is XORed with its offset in data.
void scramble(unsigned char* data, std::int64_t begin, std::int64_t end);
