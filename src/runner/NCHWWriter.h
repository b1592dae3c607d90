// Copies a host's tensor, in the order [n, c, h, w], into the arena.
#pragma once

class NCHWWriter {
public:
    virtual ~NCHWWriter() = default;
    virtual void writeNCHW(float* src) = 0;
};
