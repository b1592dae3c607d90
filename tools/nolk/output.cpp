#include "nolk/output.h"

#include <algorithm>

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
