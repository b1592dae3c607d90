#include "model/BinReader.h"

#include <algorithm>
#include <cstring>

namespace {

// Values are copied from the block without swapping bytes.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "model files are little-endian");

constexpr int kTableSize = 256;

}  // namespace

const unsigned char* BinReader::step(std::int64_t n) {
    const std::int64_t start = pos_;
    if (n > 0) pos_ += std::min(n, INT64_MAX - pos_);
    return overflowed() ? nullptr : data_ + start;
}

bool BinReader::read(void* dst, std::int64_t n) {
    const unsigned char* src = step(n);
    if (src && n > 0) std::memcpy(dst, src, static_cast<std::size_t>(n));
    return src != nullptr;
}

std::string BinReader::readString() {
    std::int32_t length = readByte();
    if (length == 255) length = readInt();
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length), ' ');
    read(text.data(), length);
    return text;
}

int BinReader::readFloats(float* dst, int n, bool compressed) {
    const int bits = compressed ? readByte() : 0;
    if (bits == 0) return read(dst, std::int64_t{n} * static_cast<int>(sizeof(float))) ? n : 0;
    if (bits == 8) return readIndexedFloats(dst, n);
    if (errors_) errors_->warning("invalid compress bits: " + std::to_string(bits));
    return 0;
}

int BinReader::readIndexedFloats(float* dst, int n) {
    float table[kTableSize] = {};
    read(table, sizeof table);
    const int present = static_cast<int>(std::min<std::int64_t>(remaining(), std::max(n, 0)));
    const unsigned char* indices = step(present);
    for (int i = 0; i < present; ++i) dst[i] = table[indices[i]];
    for (int i = present; i < n; ++i) dst[i] = table[0];
    step(std::int64_t{n} - present);
    return n;
}
