#include "examples/picker/Table.h"

#include <algorithm>
#include <numeric>

namespace picker {
namespace {

constexpr std::size_t kGap = 2;
constexpr std::size_t kNarrowest = 6;

bool continuesCharacter(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Returns the offset, in bytes, after the first n characters.
std::size_t byteOffset(const std::string& text, std::size_t n) {
    std::size_t at = 0;
    for (; at < text.size(); ++at) {
        if (!continuesCharacter(text[at]) && n-- == 0)
            break;
    }
    return at;
}

std::string padded(const std::string& text, std::size_t width, Table::Align align) {
    const std::string blanks(width - displayWidth(text), ' ');
    return align == Table::Align::left ? text + blanks : blanks + text;
}

} // namespace

std::size_t displayWidth(const std::string& text) {
    return text.size() -
           static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continuesCharacter));
}

std::string shortened(const std::string& text, std::size_t width) {
    const std::size_t length = displayWidth(text);
    if (length <= width)
        return text;
    if (width < 3)
        return text.substr(0, byteOffset(text, width));
    const std::size_t front = (width - 2 + 1) / 2;
    const std::size_t back = width - 2 - front;
    return text.substr(0, byteOffset(text, front)) + ".." + text.substr(byteOffset(text, length - back));
}

void Table::print(std::ostream& out, std::size_t width) const {
    const std::vector<std::size_t> columnWidths = widths(width);
    std::vector<std::string> titles;
    for (const Column& column : mColumns)
        titles.push_back(column.title);
    printRow(out, titles, columnWidths);
    for (const std::vector<std::string>& row : mRows)
        printRow(out, row, columnWidths);
}

std::vector<std::size_t> Table::widths(std::size_t limit) const {
    std::vector<std::size_t> widths;
    for (std::size_t i = 0; i < mColumns.size(); ++i) {
        std::size_t width = displayWidth(mColumns[i].title);
        for (const std::vector<std::string>& row : mRows)
            width = std::max(width, displayWidth(row[i]));
        widths.push_back(width);
    }
    std::size_t total = std::accumulate(widths.begin(), widths.end(), kGap * (widths.size() - 1));
    while (total > limit) {
        const auto widest = std::max_element(widths.begin(), widths.end());
        if (*widest <= kNarrowest)
            break;
        --*widest;
        --total;
    }
    return widths;
}

void Table::printRow(std::ostream& out, const std::vector<std::string>& row,
                     const std::vector<std::size_t>& widths) const {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
        line += padded(shortened(row[i], widths[i]), widths[i], mColumns[i].align) + std::string(kGap, ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

} // namespace picker
