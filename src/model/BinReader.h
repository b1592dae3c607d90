// A cursor that walks forward over a block of bytes and reads little-endian values.
//   BinReader in(data, size);  int id = in.readShort();  float alpha = in.readFloat();
//   if (in.overflowed()) ...   // one of the values above was beyond the end
// It never throws: values beyond the end read as 0, and overflowed() then stays true, so that a caller can read a whole
// record and check once. The block is borrowed and need not be aligned. A negative size means no bytes.
#pragma once

#include <cstdint>
#include <string>

#include "model/ErrorSink.h"

class BinReader {
public:
    // errors, if any, must outlive the cursor.
    BinReader(const void* data, int size, ErrorSink* errors = nullptr)
        : data_(static_cast<const unsigned char*>(data)), size_(size), errors_(errors) {}

    // Whether the cursor has passed the end; standing at the end is no overflow.
    bool overflowed() const { return pos_ > size_; }

    // Bytes between the cursor and the end; 0 beyond it.
    std::int64_t remaining() const { return overflowed() ? 0 : size_ - pos_; }

    // Moves the cursor by n bytes (not at all for a negative n). Returns its place before, or null when it has
    // overflowed.
    const unsigned char* step(std::int64_t n);

    // Copies n bytes to dst and moves on. When fewer are left, returns false and does not change dst.
    bool read(void* dst, std::int64_t n);

    std::int32_t readInt() { return readValue<std::int32_t>(); }
    std::int16_t readShort() { return readValue<std::int16_t>(); }
    std::uint8_t readByte() { return readValue<std::uint8_t>(); }
    float readFloat() { return readValue<float>(); }

    // Reads a length byte (255: a 32-bit length follows it) and that many characters. When fewer are left, all of the
    // text is blanks.
    std::string readString();

    // Reads n floats. If compressed is true, a byte before them tells their form: 0 for plain floats, 8 for a table of
    // 256 floats and n indices into it. Any other byte gives a warning; then nothing after it is read.
    // Returns how many floats were written to dst: n, or 0 when plain floats are missing or the form is unknown.
    // Missing indices count as 0.
    int readFloats(float* dst, int n, bool compressed);

private:
    template <typename T>
    T readValue() {
        T value{};
        read(&value, sizeof value);
        return value;
    }

    int readIndexedFloats(float* dst, int n);

    const unsigned char* data_;
    std::int32_t size_;
    ErrorSink* errors_;
    std::int64_t pos_ = 0;  // 64 bits, so that it cannot wrap around and get back into the block
};
