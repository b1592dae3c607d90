// Writes a tensor that is stored in the order [n, c, h, w], as the host passes it.
#pragma once

#include <cstddef>
#include <cstring>

#include "runner/NCHWWriter.h"

class PlainNCHWWriter final : public NCHWWriter {
public:
    PlainNCHWWriter(float* data, int count) : data_(data), count_(count) {}

    void writeNCHW(float* src) override {
        if (count_ > 0) std::memcpy(data_, src, static_cast<std::size_t>(count_) * sizeof(float));
    }

private:
    float* data_;
    int count_;
};
