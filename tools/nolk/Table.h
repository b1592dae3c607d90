// Lines of text in columns.
//   Table table({{"operation"}, {"parameters", true}});  table.add({"relu", "0"});  table.text()
#pragma once

#include <string>
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
