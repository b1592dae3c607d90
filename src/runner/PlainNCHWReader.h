// Reads a tensor that is stored in the order [n, c, h, w], as the host expects it.
#pragma once

#include <cstddef>
#include <cstring>

#include "runner/NCHWReader.h"

class PlainNCHWReader final : public NCHWReader {
public:
    PlainNCHWReader(const float* data, int count) : data_(data), count_(count) {}

    void readNCHW(float* dst) override {
        if (count_ > 0) std::memcpy(dst, data_, static_cast<std::size_t>(count_) * sizeof(float));
    }

private:
    const float* data_;
    int count_;
};
