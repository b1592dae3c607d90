#include "convert/npy.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "convert/onnx/Model.h"

namespace convert {

namespace {

using Bytes = std::vector<char>;

[[noreturn]] void refuse(const std::string& path, const std::string& why) { throw OnnxError(path + ": " + why); }

Bytes readAll(const std::string& path) {
    if (mayBlock(path)) refuse(path, "is no regular file");
    std::ifstream file(path, std::ios::binary);
    if (!file) refuse(path, "cannot be opened");
    try {
        return {std::istreambuf_iterator<char>(file), {}};
    } catch (const std::ios_base::failure&) {
        refuse(path, "cannot be read");  // a folder
    }
}

// Where the header's text begins and ends, and the values begin.
std::pair<std::size_t, std::size_t> headerRange(const std::string& path, const Bytes& bytes) {
    constexpr std::size_t kMagic = 6;
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "\x93NUMPY", kMagic) != 0) refuse(path, "not an npy file");
    const auto byte = [&](std::size_t at) { return static_cast<std::size_t>(static_cast<unsigned char>(bytes[at])); };
    const bool isLong = byte(kMagic) >= 2;
    const std::size_t begin = isLong ? 12 : 10;
    std::size_t length = byte(8) | byte(9) << 8;
    if (isLong) length |= byte(10) << 16 | byte(11) << 24;
    if (length > bytes.size() - begin) refuse(path, "cut short");
    return {begin, begin + length};
}

template <typename Element, typename Value>
std::vector<Value> valuesOf(const char* from, std::size_t count) {
    std::vector<Value> values(count);
    for (std::size_t i = 0; i < count; ++i) {
        Element element;
        std::memcpy(&element, from + i * sizeof element, sizeof element);
        // NOLINTNEXTLINE(bugprone-signed-char-misuse): an int8 is a number here, no character.
        values[i] = static_cast<Value>(element);
    }
    return values;
}

template <typename Element>
Array floats(const Dims& dims, const char* from, std::size_t count) {
    return floatArray(dims, valuesOf<Element, float>(from, count));
}

template <typename Element>
Array integers(const Dims& dims, const char* from, std::size_t count) {
    return {onnx::TensorProto::INT64, dims, valuesOf<Element, std::int64_t>(from, count)};
}

struct Kind {
    const char* name;
    std::size_t bytes;
    Array (*make)(const Dims& dims, const char* from, std::size_t count);
};

constexpr Kind kKinds[] = {
    {"f4", 4, floats<float>},           {"f8", 8, floats<double>},         {"b1", 1, integers<std::uint8_t>},
    {"i1", 1, integers<std::int8_t>},   {"i2", 2, integers<std::int16_t>}, {"i4", 4, integers<std::int32_t>},
    {"i8", 8, integers<std::int64_t>},  {"u1", 1, integers<std::uint8_t>}, {"u2", 2, integers<std::uint16_t>},
    {"u4", 4, integers<std::uint32_t>},
};

// What stands behind a key of the header, blanks left out, up to one of the characters of `end`.
std::string valueOf(const std::string& header, const std::string& key, const std::string& end) {
    const std::size_t at = header.find("'" + key + "'");
    const std::size_t begin = at == std::string::npos ? at : header.find(':', at);
    if (begin == std::string::npos) return "";
    std::string value;
    for (std::size_t i = begin + 1; i < header.size() && end.find(header[i]) == std::string::npos; ++i)
        if (header[i] != ' ') value += header[i];
    return value;
}

// The numbers in "(1,3,4"
Dims dimsOf(const std::string& text) {
    Dims dims;
    bool isInside = false;
    for (const char c : text) {
        const bool isDigit = c >= '0' && c <= '9';
        constexpr std::int64_t kLargest = std::int64_t{1} << 40;
        if (isDigit && !isInside) dims.push_back(0);
        if (isDigit) dims.back() = std::min(dims.back() * 10 + (c - '0'), kLargest);
        isInside = isDigit;
    }
    return dims;
}

}  // namespace

Array readNpy(const std::string& path) {
    const Bytes bytes = readAll(path);
    const auto [begin, end] = headerRange(path, bytes);
    constexpr std::size_t kLongestHeader = 4096;
    if (end - begin > kLongestHeader) refuse(path, "the header is too long");
    const std::string header(bytes.data() + begin, end - begin);
    std::string type = valueOf(header, "descr", ",");  // '<f4'
    type = type.size() == 5 && std::string("<|=").find(type[1]) != std::string::npos ? type.substr(2, 2) : "";
    const std::string shape = valueOf(header, "shape", ")");
    if (type.empty() || shape.empty()) refuse(path, "a header that is not understood");
    if (valueOf(header, "fortran_order", ",}") != "False")
        refuse(path, "in Fortran's order: save it with numpy.ascontiguousarray");
    const Dims dims = dimsOf(shape);
    const auto count = static_cast<std::size_t>(elementCount(dims));
    for (const Kind& kind : kKinds) {
        if (type != kind.name) continue;
        if (bytes.size() - end != count * kind.bytes)
            refuse(path, "has " + std::to_string(bytes.size() - end) + " bytes of values, " + describeDims(dims) +
                             " needs " + std::to_string(count * kind.bytes));
        return kind.make(dims, bytes.data() + end, count);
    }
    refuse(path, "values of the type " + type + " are not read: save it as float32");
}

}  // namespace convert
