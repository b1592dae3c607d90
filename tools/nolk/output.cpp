#include "nolk/output.h"

#include <algorithm>
#include <string_view>

#include "nolk/json.h"

std::string Table::text() const {
    std::vector<std::size_t> widths;
    std::vector<std::string> titles;
    for (std::size_t c = 0; c < columns_.size(); ++c) {
        std::size_t widest = 0;
        for (const auto& row : rows_) widest = std::max(widest, row[c].size());
        widths.push_back(widest == 0 ? 0 : std::max(widest, columns_[c].title.size()));
        titles.push_back(columns_[c].title);
    }
    std::string text;
    const auto addLine = [&](const std::vector<std::string>& cells) {
        std::string line;
        for (std::size_t c = 0; c < cells.size(); ++c) {
            if (widths[c] == 0) continue;
            if (!line.empty()) line += "  ";
            const std::string blanks(widths[c] - cells[c].size(), ' ');
            line += columns_[c].alignRight ? blanks + cells[c] : cells[c] + blanks;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        text += line + "\n";
    };
    addLine(titles);
    for (const auto& row : rows_) addLine(row);
    return text;
}

std::string printable(const std::string& text) {
    constexpr std::string_view kReplaced = "\xEF\xBF\xBD";  // U+FFFD, which the JSON library writes for invalid bytes
    const std::string utf8 = Json::parse(jsonText(text)).get<std::string>();
    std::string result;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto byteAt = [&utf8](std::size_t place) { return static_cast<unsigned char>(utf8[place]); };
        if (utf8.compare(i, kReplaced.size(), kReplaced) == 0) {
            result += '?';
            i += 2;
        } else if (byteAt(i) == 0xC2 && byteAt(i + 1) < 0xA0) {  // U+0080 to U+009F
            result += '?';
            ++i;
        } else {
            result += byteAt(i) < 0x20 || byteAt(i) == 0x7F ? '?' : utf8[i];
        }
    }
    return result;
}

std::string xmlText(const std::string& text) {
    std::string result;
    for (const char c : printable(text)) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result += c;
        }
    }
    return result;
}
