#include "model/container.h"

#include <cstring>
#include <string>

#include "model/crc32.h"

bool checkHeadCM(BinReader& in, ErrorSink& errors) {
    char head[3] = {};
    in.read(head, 2);
    if (std::strcmp(head, "CM") == 0) return true;
    errors.error(std::string("wrong head: ") + head);
    return false;
}

// A negative length skips no bytes, but is added to the sum all the same. Scrambling begins at this sum, and existing
// files with a negative length were scrambled from there.
std::int64_t getHeadInfo(BinReader& in, std::vector<HeadInfoEntry>* entries) {
    std::int64_t total = 0;
    while (const std::int16_t key = in.readShort()) {
        const std::int16_t length = in.readShort();
        const unsigned char* data = in.step(length);
        total += 4 + length;
        if (entries) entries->push_back({key, length, data});
    }
    return total + 2;
}

bool checkCrc(const unsigned char* data, int size, ErrorSink& errors) {
    const int covered = size - kCrcBytes;
    std::uint32_t expected;
    std::memcpy(&expected, data + covered, sizeof expected);
    if (GetCRC32(data, covered) == expected) return true;
    errors.error("model verify failed: wrong crc32");
    return false;
}

void scramble(unsigned char* data, std::int64_t begin, std::int64_t end) {
    for (std::int64_t i = begin; i < end; ++i) data[i] ^= static_cast<unsigned char>(i);
}
