// Something wrong or suspicious in a model file, and where.
#pragma once

#include <cstdint>
#include <string>

struct Finding {
    bool isError = false;     // reading would fail or the result be undefined; else a warning
    std::string place;        // "record 7 (convolve)"
    std::int64_t offset = 0;  // in the file
    std::string text;
};

// "record 7 (convolve) at byte 1234: error: why"
std::string describe(const Finding& finding);
