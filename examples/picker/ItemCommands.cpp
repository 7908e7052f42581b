#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"
#include "examples/picker/Table.h"

#include <cstdio>

namespace picker {
namespace {

constexpr int kRowsAtOnce = 20;

std::string labelledPath(const Drawing& drawing, const KvVector<GxDbObjectId>& path) {
    return pathText(path, [&](GxDbObjectId id) { return drawing.label(id); });
}

std::string crossingText(const GxapSelectedEntInfo* info) {
    SelFenceIntersectInfo crossing{};
    if (!info || !info->getSelFenceResultInfo(crossing))
        return "-";
    char text[64];
    (void)std::snprintf(text, sizeof text, "segment %d at %.3f", crossing.index, crossing.param);
    return text;
}

std::string markerText(long marker) {
    return marker == -1 ? "-" : std::to_string(marker);
}

// Returns the first two rows of the compound transform as "by [row; row]". The first row gives x', and the
// second row gives y'.
std::string transformText(const GxapSelectedEntInfo* info) {
    GxGeMatrix3d matrix;
    if (!info || !info->getCompoundTransformWithBTROffset(matrix))
        return "as drawn";
    const auto row = [&](int i) {
        return shortNumber(matrix.entry[i][0]) + " " + shortNumber(matrix.entry[i][1]) + " " +
               shortNumber(matrix.entry[i][3]);
    };
    return "by [" + row(0) + "; " + row(1) + "]";
}

void addRow(Table& table, const Drawing& drawing, const GxapSelectSet::ConstIterator& it) {
    table.add({std::to_string(it.index), idText(drawing, it.mainEntId()), idText(drawing, it.subEntId()),
               markerText(it.gsMarker()), handlePath(drawing, it.nestedEntFullPath()),
               crossingText(it.selectedEntityInfo())});
}

void list(Console& console, const Arguments& arguments) {
    const std::vector<int> v = arguments.positions(0, 2);
    const int first = v.empty() ? 0 : v[0];
    const int rows = v.size() < 2 ? kRowsAtOnce : v[1];
    const GxapSelectSet& set = console.session.set();
    if (itemCount(set) == 0) {
        console.out << "set " << console.session.currentName() << " is empty\n";
        return;
    }
    if (rows == 0)
        arguments.fail("a list has at least one item");
    if (static_cast<std::uint32_t>(first) >= itemCount(set))
        throw noSuchItem(console.session);
    Table table({{"#", Table::Align::right},
                 {"main id"},
                 {"sub id"},
                 {"marker", Table::Align::right},
                 {"nested path"},
                 {"fence crossing"}});
    // iteratorAt() counts items up to the position, so it is called only once. The iterator then steps from
    // row to row.
    GxapSelectSet::ConstIterator it = set.iteratorAt(first);
    for (int row = 0; row < rows && !it.isDone(); ++row, it.step())
        addRow(table, console.session.drawing(), it);
    table.print(console.out, console.width);
    if (!it.isDone())
        console.out << "... " << itemCount(set) - static_cast<std::uint32_t>(it.index) << " more: list "
                    << it.index << '\n';
}

// Prints what the library makes of a nested path: the entity, and the ids that can be opened. Prints nothing
// for an item without a nested path.
void sayResolved(Console& console, const GxapSelectSet::ConstIterator& it) {
    GxDbFullSubentPath path;
    KvVector<GxDbObjectId> opened;
    if (!it.getFullSubentPath(path) || !it.getFilteredNestedFullPath(opened))
        return;
    const Drawing& drawing = console.session.drawing();
    console.out << "  resolved to entity " << handlePath(drawing, path.objectIds()) << ", marker "
                << markerText(path.subentId().index) << "; ids that open: " << handlePath(drawing, opened)
                << '\n';
}

void item(Console& console, const Arguments& arguments) {
    const GxapSelectSet& set = console.session.set();
    const GxapSelectSet::ConstIterator it = set.iteratorAt(arguments.positions(1, 1)[0]);
    if (it.isDone())
        throw noSuchItem(console.session);
    const Drawing& drawing = console.session.drawing();
    console.out << "item " << it.index << ": main id " << idText(drawing, it.mainEntId()) << ", sub id "
                << idText(drawing, it.subEntId()) << ", marker " << markerText(it.gsMarker()) << ", placed "
                << transformText(it.selectedEntityInfo()) << "\n  path "
                << labelledPath(drawing, it.nestedEntFullPath()) << ", fence crossing "
                << crossingText(it.selectedEntityInfo()) << '\n';
    sayResolved(console, it);
}

void count(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    const GxapSelectSet& set = console.session.set();
    std::uint64_t mainIds = 0;
    const GxapSelectSet::SSetData::DataMap& index = set.sharedData->dataMap;
    for (auto it = index.begin(); it != index.end(); it = index.upper_bound(it->first))
        ++mainIds;
    console.out << "set " << console.session.currentName() << ": " << items(itemCount(set)) << " under "
                << plural(mainIds, "main id", "main ids") << '\n';
}

void has(Console& console, const Arguments& arguments) {
    const Drawing& drawing = console.session.drawing();
    const GxDbObjectId id = idOf(drawing, arguments.word());
    const GxapSelectSet& set = console.session.set();
    // findInMap() only looks the id up in the index. A function that returns a position would also count
    // items.
    const auto found = set.findInMap(id);
    const bool isThere = found != set.sharedData->dataMap.end();
    console.out << "set " << console.session.currentName() << (isThere ? " has " : " does not have ")
                << drawing.label(id) << '\n';
}

} // namespace

CommandGroup itemCommands() {
    return {"The items of the current set",
            {{"list", "[FIRST [COUNT]]", "the items of the current set", list},
             {"item", "POSITION", "all about one item, with its path resolved", item},
             {"count", "", "how many items the current set has", count},
             {"has", "ID", "whether items have that main id", has}}};
}

} // namespace picker
