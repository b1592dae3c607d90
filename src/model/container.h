// Reads the parts of a model file around its records: head, head info, checksum and scrambling. ModelReaderImpl uses
// all of them; programs that examine files use single ones. docs/model-format.md has the tables.
#pragma once

#include <cstdint>
#include <vector>

#include "model/BinReader.h"
#include "model/ErrorSink.h"

constexpr int kHeadBytes = 4;  // "CM" and the version
constexpr int kCrcBytes = 4;

struct HeadInfoEntry {
    std::int16_t key = 0;
    std::int16_t length = 0;              // as stored; negative only in a faulty file
    const unsigned char* data = nullptr;  // borrowed from the file; null when the file ends before its end
};

// Whether the first two bytes are "CM"; reports an error if not.
bool checkHeadCM(BinReader& in, ErrorSink& errors);

// Skips the head info block: entries of a key, a length and that many bytes, up to a key of 0. Returns the length of
// the block in bytes. Adds its entries to `entries` unless that is null.
std::int64_t getHeadInfo(BinReader& in, std::vector<HeadInfoEntry>* entries = nullptr);

// Whether the last four bytes are the checksum of the bytes before them; reports an error if not. size must be at least
// four.
bool checkCrc(const unsigned char* data, int size, ErrorSink& errors);

// Scrambles the bytes from begin to end, or restores them: each is XORed with its offset in data.
void scramble(unsigned char* data, std::int64_t begin, std::int64_t end);
