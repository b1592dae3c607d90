// Output of commands: tables of text, and writing to files or standard output.
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

    // Adds a row, with as many cells as there are columns.
    void add(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

    // The titles and the rows, one line each. Columns whose cells are all empty are left out.
    std::string text() const;

private:
    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

// Writes text to a file, or to standard output for "-". A regular file is replaced atomically: if writing fails, the
// old contents stay and no partial file is left. Throws std::runtime_error, "path: why", when it cannot be written.
void writeText(const std::string& path, const std::string& text);
