#include "nolk/onnx.h"

#include <algorithm>

namespace {

constexpr std::string_view kEnding = ".onnx", kOwnBegin = "CM";

// Tags of a ModelProto's fields: the field's number * 8 + the type of its value (0: number, 2: bytes).
enum Tag : unsigned char {
    kIrVersion = 1 << 3,
    kProducerName = 2 << 3 | 2,
    kProducerVersion = 3 << 3 | 2,
    kDomain = 4 << 3 | 2,
    kModelVersion = 5 << 3,
    kDocumentation = 6 << 3 | 2,
    kGraph = 7 << 3 | 2,
    kOpsetImport = 8 << 3 | 2,
};

// Whether the bytes are a text after its length of one byte. Other formats of Protocol Buffers have messages in these
// fields, which begin with control characters.
bool beginsWithText(std::string_view bytes) {
    if (bytes.empty()) return false;
    const auto length = static_cast<unsigned char>(bytes[0]);
    if (length >= 0x80) return false;
    const std::string_view text = bytes.substr(1, length);
    return std::none_of(text.begin(), text.end(), [](unsigned char c) { return c < ' '; });
}

// Whether the bytes begin like a ModelProto: with the version of the format, followed by another field.
bool isModelProto(std::string_view bytes) {
    constexpr int kOldest = 2, kNewest = 20;  // with room for the future; 1 would be SavedModel's
    if (bytes.size() < 4 || bytes[0] != kIrVersion || bytes[1] < kOldest || bytes[1] > kNewest) return false;
    switch (static_cast<unsigned char>(bytes[2])) {
        case kProducerName:
        case kProducerVersion:
        case kDomain:
            return beginsWithText(bytes.substr(3));
        case kModelVersion:
        case kDocumentation:
        case kGraph:
        case kOpsetImport:
            return true;
        default:
            return false;
    }
}

}  // namespace

const char kOnnxAdvice[] =
    "an ONNX model, which nolk does not read: make a model file of it first, with nolk-convert IN.onnx OUT.cm";

bool looksLikeOnnx(const std::string& path, std::string_view begin) {
    if (begin.substr(0, kOwnBegin.size()) == kOwnBegin) return false;
    const bool named =
        path.size() > kEnding.size() && path.compare(path.size() - kEnding.size(), kEnding.size(), kEnding) == 0;
    return named || isModelProto(begin);
}
