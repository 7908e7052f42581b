// Prints rows in columns that fit into a line.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace picker {

class Table {
public:
    enum class Align { left, right };
    struct Column {
        std::string title;
        Align align = Align::left;
    };

    explicit Table(std::vector<Column> columns) : mColumns(std::move(columns)) {}

    void add(std::vector<std::string> row) { mRows.push_back(std::move(row)); }
    // Prints the table. If the lines would be longer than `width`, cuts cells of the widest columns in the
    // middle. Narrow columns are not cut, so lines may still be longer.
    void print(std::ostream& out, std::size_t width) const;

private:
    std::vector<std::size_t> widths(std::size_t limit) const;
    void printRow(std::ostream& out, const std::vector<std::string>& row,
                  const std::vector<std::size_t>& widths) const;

    std::vector<Column> mColumns;
    std::vector<std::vector<std::string>> mRows;
};

// Returns the number of characters, not bytes, of UTF-8 text.
std::size_t displayWidth(const std::string& text);
// Returns the text, shortened to at most `width` characters: two dots replace the middle.
std::string shortened(const std::string& text, std::size_t width);

} // namespace picker
