// Output of commands: tables of text, and text from files that is made safe; writeText writes them.
//   Table table({{"operation"}, {"parameters", true}});  table.add({"relu", "0"});  writeText("-", table.text());
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "writeText.h"

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

// Makes text from a file or a command line safe for one line of a terminal: control characters, and bytes that are not
// UTF-8, become '?'.
std::string printable(const std::string& text);

// The text, escaped for text and attributes of XML.
std::string xmlText(const std::string& text);
