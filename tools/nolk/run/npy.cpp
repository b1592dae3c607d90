#include "nolk/run/npy.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "inspect/counts.h"
#include "nolk/model/InputFile.h"

namespace {

using Extents = std::vector<std::int64_t>;

constexpr std::string_view kMagic = "\x93NUMPY";
constexpr std::int64_t kLongestHeader = 1 << 16;  // a longer header is not of a usable array
constexpr std::size_t kMostExtents = 64;
constexpr std::size_t kAlignment = 64;  // of the values in the file

bool isBlank(char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }

void trim(std::string_view& text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
}

bool take(std::string_view& text, char wanted) {
    trim(text);
    if (text.empty() || text.front() != wanted) return false;
    text.remove_prefix(1);
    return true;
}

// The end of a value: a comma, colon or closing bracket outside the value's own brackets and quotes.
std::size_t endOfValue(std::string_view text) {
    int depth = 0;
    char quote = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quote != 0) {
            if (c == quote) quote = 0;
        } else if (c == '\'' || c == '"') {
            quote = c;
        } else if (depth == 0 && std::strchr(",:)]}", c)) {
            return i;
        } else {
            depth += std::strchr("([{", c) ? 1 : std::strchr(")]}", c) ? -1 : 0;
        }
    }
    return text.size();
}

// Removes the next value from the front of the text, and returns it.
std::string_view takeValue(std::string_view& text) {
    const std::size_t end = endOfValue(text);
    std::string_view value = text.substr(0, end);
    text.remove_prefix(end);
    trim(value);
    return value;
}

std::optional<std::string_view> unquoted(std::string_view text) {
    const bool quoted =
        text.size() >= 2 && (text.front() == '\'' || text.front() == '"') && text.back() == text.front();
    if (!quoted) return std::nullopt;
    return text.substr(1, text.size() - 2);
}

// Parses "{'shape': (1, 28), ...}" into the text of the value of each key.
std::optional<std::map<std::string_view, std::string_view>> parseDictionary(std::string_view text) {
    std::map<std::string_view, std::string_view> entries;
    if (!take(text, '{')) return std::nullopt;
    while (!take(text, '}')) {
        const std::optional<std::string_view> key = unquoted(takeValue(text));
        if (!key || !take(text, ':')) return std::nullopt;
        entries[*key] = takeValue(text);
        if (!take(text, ',') && (text.empty() || text.front() != '}')) return std::nullopt;
    }
    return entries;
}

// "(1, 28)", "(28,)", "()"; whole numbers may end in L.
std::optional<Extents> parseExtents(std::string_view text) {
    Extents extents;
    if (!take(text, '(')) return std::nullopt;
    while (!take(text, ')')) {
        std::string_view number = takeValue(text);
        if (!number.empty() && number.back() == 'L') number.remove_suffix(1);
        std::int64_t extent = 0;
        const char* const end = number.data() + number.size();
        const auto [stop, error] = std::from_chars(number.data(), end, extent);
        if (error != std::errc() || stop != end || extent < 0 || extents.size() == kMostExtents) return std::nullopt;
        extents.push_back(extent);
        if (!take(text, ',') && (text.empty() || text.front() != ')')) return std::nullopt;
    }
    return extents;
}

// "float64 ('<f8')", or only the text itself if the type is unknown.
std::string typeText(std::string_view descr) {
    std::string shown(descr.substr(0, 40));
    std::replace_if(
        shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c > '~'; }, '?');
    const std::optional<std::string_view> code = unquoted(descr);
    if (!code || code->size() < 3 || code->size() > 4) return "type " + shown;
    static const std::map<char, std::string> kKinds = {
        {'b', "bool"}, {'c', "complex"}, {'f', "float"}, {'i', "int"}, {'u', "uint"}};
    const auto kind = kKinds.find((*code)[1]);
    int bytes = 0;
    const char* const end = code->data() + code->size();
    const bool number = std::from_chars(code->data() + 2, end, bytes).ptr == end;
    if (kind == kKinds.end() || !number) return "type " + shown;
    return (code->front() == '>' ? "big-endian " : "") + kind->second + std::to_string(8 * bytes) + " (" + shown + ")";
}

// "(1, 28)", "(28,)"
std::string tupleText(const Extents& extents) {
    std::string text = "(";
    for (const std::int64_t extent : extents) text += (text.size() > 1 ? ", " : "") + std::to_string(extent);
    return text + (extents.size() == 1 ? ",)" : ")");
}

Extents withoutLeadingOnes(const Extents& extents) {
    return {std::find_if(extents.begin(), extents.end(), [](std::int64_t extent) { return extent != 1; }),
            extents.end()};
}

bool fits(const Extents& extents, const nolk::TensorShape& expected) {
    const Extents have = withoutLeadingOnes(extents);
    return have == withoutLeadingOnes(extentsOf(expected)) ||
           have == withoutLeadingOnes({expected.n, expected.c, expected.h, expected.w});
}

std::string readHeader(InputFile& file) {
    char magic[6];
    unsigned char version[2], length[4] = {};
    if (file.left() < 10) file.fail("not a .npy file");
    file.read(magic, sizeof magic);
    if (std::string_view(magic, sizeof magic) != kMagic) file.fail("not a .npy file");
    file.read(version, sizeof version);
    if (version[0] < 1 || version[0] > 3 || version[1] != 0)
        file.fail(".npy format version " + std::to_string(version[0]) + "." + std::to_string(version[1]) +
                  ", expected 1.0 to 3.0");
    file.read(length, version[0] == 1 ? 2 : 4);
    const std::int64_t bytes =
        length[0] | length[1] << 8 | length[2] << 16 | static_cast<std::int64_t>(length[3]) << 24;
    if (bytes > std::min(file.left(), kLongestHeader))
        file.fail("header of " + std::to_string(bytes) + " bytes, " + std::to_string(file.left()) + " are left");
    std::string header(static_cast<std::size_t>(bytes), '\0');
    file.read(header.data(), bytes);
    return header;
}

void checkHeader(const InputFile& file, const std::string& header, const nolk::TensorShape& expected) {
    const auto entries = parseDictionary(header);
    if (!entries) file.fail("damaged .npy header");
    for (const char* key : {"descr", "fortran_order", "shape"})
        if (entries->count(key) == 0) file.fail(std::string("damaged .npy header: no '") + key + "'");
    const std::string_view descr = entries->at("descr"), fortran = entries->at("fortran_order");
    if (unquoted(descr) != "<f4") file.fail(typeText(descr) + ", expected float32 ('<f4')");
    if (fortran == "True") file.fail("Fortran order, expected C order");
    if (fortran != "False") file.fail("damaged .npy header: 'fortran_order' is neither True nor False");
    const std::optional<Extents> extents = parseExtents(entries->at("shape"));
    if (!extents) file.fail("damaged .npy header: 'shape' is no tuple of extents");
    if (!fits(*extents, expected))
        file.fail("shape " + tupleText(*extents) + ", expected " + tupleText(extentsOf(expected)));
}

}  // namespace

void readNpy(const std::string& path, const nolk::TensorShape& expected, float* values) {
    InputFile file(path);
    checkHeader(file, readHeader(file), expected);
    const std::int64_t bytes = elementsOf(expected) * 4;
    if (file.left() != bytes)
        file.fail(std::to_string(file.left()) + " bytes of values, expected " + std::to_string(bytes));
    file.read(values, bytes);
}

std::string npyBytes(const HostTensor& tensor) {
    std::string header =
        "{'descr': '<f4', 'fortran_order': False, 'shape': " + tupleText(extentsOf(tensor.shape)) + ", }";
    constexpr std::size_t kFront = 10;  // magic, version, length
    while ((kFront + header.size() + 1) % kAlignment != 0) header += ' ';
    header += '\n';
    std::string bytes(kMagic);
    bytes += {1, 0, static_cast<char>(header.size() & 255), static_cast<char>(header.size() >> 8)};
    bytes += header;
    return bytes.append(reinterpret_cast<const char*>(tensor.values.data()), tensor.values.size() * sizeof(float));
}
