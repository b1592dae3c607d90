// A hash of results, for comparing their bits with those of other processors.
#pragma once

#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// FNV-1a over the bytes, little-endian. All NaNs count as one: which of them comes out is the processor's choice.
inline std::string hashOf(const std::vector<float>& values) {
    std::uint64_t hash = 14695981039346656037u;
    for (const float v : values) {
        std::uint32_t bits = 0x7FC00000;
        if (!std::isnan(v)) std::memcpy(&bits, &v, sizeof bits);
        for (int shift = 0; shift < 32; shift += 8) hash = (hash ^ (bits >> shift & 0xFF)) * 1099511628211u;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016" PRIx64, hash);
    return text;
}
