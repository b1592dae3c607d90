// Files in the .npy format, written by hand, for tests.
#pragma once

#include <cstring>
#include <string>
#include <vector>

// header: the dictionary's text; nothing is added to it.
inline std::string npyFile(const std::string& header, const std::vector<float>& values, char version = 1) {
    std::string bytes = "\x93NUMPY";
    bytes += {version, 0, static_cast<char>(header.size() & 255), static_cast<char>(header.size() >> 8)};
    if (version > 1) bytes += std::string(2, '\0');
    bytes += header;
    return bytes.append(reinterpret_cast<const char*>(values.data()), values.size() * sizeof(float));
}

inline std::string npyHeader(const std::string& shape) {
    return "{'descr': '<f4', 'fortran_order': False, 'shape': " + shape + ", }\n";
}

// The values of a file with a header of 118 bytes, as nolk writes it for few extents.
inline std::vector<float> npyValues(const std::string& bytes) {
    if (bytes.size() < 128) return {};
    std::vector<float> values((bytes.size() - 128) / sizeof(float));
    std::memcpy(values.data(), bytes.data() + 128, values.size() * sizeof(float));
    return values;
}
