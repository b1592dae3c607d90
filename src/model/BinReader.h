// A cursor that walks forward over a block of bytes and reads little-endian values.
//   BinReader in(data, size);  int id = in.readShort();  float alpha = in.readFloat();
//   if (in.overflowed()) ...   // something above was not there
// It never throws: what lies beyond the end reads as 0, and overflowed() then stays true, so that a whole record can be
// read before asking once. The block is borrowed, and may have any address. A negative size means no bytes.
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

    // Moves the cursor by n bytes (not at all for a negative n). Where it stood, or null when it has overflowed.
    const unsigned char* step(std::int64_t n);

    // Copies n bytes to dst and moves on; false, and dst left alone, when there are fewer.
    bool read(void* dst, std::int64_t n);

    std::int32_t readInt() { return readValue<std::int32_t>(); }
    std::int16_t readShort() { return readValue<std::int16_t>(); }
    std::uint8_t readByte() { return readValue<std::uint8_t>(); }
    float readFloat() { return readValue<float>(); }

    // A length byte (255: a 32-bit length follows it) and that many characters, which are blanks when there are fewer.
    std::string readString();

    // n floats. Compressed ones start with a byte that tells their form: 0, plain; 8, a table of 256 floats and then n
    // indices into it. Any other byte is a warning; dst stays as it is then, and nothing behind that byte is read.
    // Missing floats leave dst alone, missing indices count as 0. Returns how many floats were written to dst: n or
    // none.
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
    std::int64_t pos_ = 0;  // wider than a size, so that no step can bring it back
};
