#include "convert/onnx/text.h"

namespace convert {

std::string printableName(const std::string& name) {
    constexpr std::size_t kLongest = 120;
    std::string text = name.size() <= kLongest ? name : name.substr(0, kLongest - 3) + "...";
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) c = '?';
    return text;
}

std::string inQuotes(const std::string& name) { return "'" + printableName(name) + "'"; }

}  // namespace convert
