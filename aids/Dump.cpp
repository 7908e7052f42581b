// dump(): a set as text.

#include "aids/Inspect.h"
#include "aids/detail/ItemText.h"

#include <ostream>

namespace kv {
namespace {

std::size_t countOf(const ItemRange& range) {
    return static_cast<std::size_t>(std::distance(range.begin(), range.end()));
}

// Writes the text without the stream's width and fill.
void writeLine(std::ostream& out, const std::string& line) {
    out.write(line.data(), static_cast<std::streamsize>(line.size()));
    out.put('\n');
}

std::string headline(const GxapSelectSet& set, std::size_t count) {
    std::string line = std::to_string(count) + (count == 1 ? " item" : " items");
    line += !set.sharedData || set.sharedData->unique ? ", unique" : ", not unique";
    if (set.isSelectByNestedMode())
        line += ", nested mode";
    return line;
}

} // namespace

void dump(const GxapSelectSet& set, std::ostream& out, const IdText& idText) {
    const ItemRange range = items(set);
    writeLine(out, headline(set, countOf(range)));
    std::size_t position = 0;
    for (const selected_entity& item : range) {
        writeLine(out, std::to_string(position) + ": " + detail::textOfKeys(item, idText) +
                           detail::textOfOtherFields(item, idText));
        ++position;
    }
}

} // namespace kv
