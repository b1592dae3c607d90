// Copies a tensor out of the arena, in the order [n, c, h, w].
#pragma once

class NCHWReader {
public:
    virtual ~NCHWReader() = default;
    virtual void readNCHW(float* dst) = 0;
};
