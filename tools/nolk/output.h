// What commands write: tables of text, and files of the user's choice.
//   Table table({{"operation"}, {"parameters", true}});  table.add({"relu", "0"});  writeText("-", table.text());
#pragma once

#include <string>
#include <utility>
#include <vector>

struct Column {
    std::string title;
    bool alignRight = false;
};

class Table {
public:
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    // As many cells as there are columns.
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    // The titles and the rows, a line each; without columns whose cells are all empty.
    std::string text() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

// To standard output for "-". A file gets its new contents at once: what stood there stays until all has been written,
// and no half of a file is left behind. Throws std::runtime_error, "path: why", when it cannot be written.
void writeText(const std::string& path, const std::string& text);
