#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"
#include "examples/picker/Table.h"

namespace picker {
namespace {

void clear(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.session.clear();
    console.out << "set " << console.session.currentName() << " is empty\n";
}

void removePick(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    sayRemoved(console, console.session.removeNearest(where.point, where.reach));
}

void removeBox(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removeInside(boxOf(arguments)));
}

void removeCrossing(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removeCrossing(boxOf(arguments)));
}

void removeFence(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removeFence(chainOf(arguments)));
}

void removeId(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removePaths(idPaths(console, arguments)));
}

void removeAt(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removeAt(arguments.positions(1, 1)[0]));
}

void unique(Console& console, const Arguments& arguments) {
    const std::string word = arguments.optionalWord();
    if (!word.empty() && word != "on" && word != "off")
        arguments.fail("'" + word + "' is neither on nor off");
    const std::uint32_t removed = word.empty() ? 0 : console.session.setUnique(word == "on");
    const GxapSelectSet& set = console.session.set();
    const bool isUnique = !set.sharedData || set.sharedData->unique;
    console.out << "set " << console.session.currentName()
                << (isUnique ? " refuses items that it has" : " takes items again that it has");
    if (removed > 0)
        console.out << "; " << items(removed) << " under the same main id as others taken out";
    console.out << '\n';
}

void undo(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    if (!console.session.undo())
        throw CommandError("set " + console.session.currentName() + " has no edit to take back");
    sayCount(console, "taken back");
}

void redo(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    if (!console.session.redo())
        throw CommandError("set " + console.session.currentName() + " has no edit to do again");
    sayCount(console, "done again");
}

// ---- edges

void edge(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    const Tally tally = console.session.addEdge(where.point, where.reach);
    const char* const done = tally.found == 0 ? "nothing there" : "already among the edges";
    sayCount(console, tally.added > 0 ? "edge added" : done);
}

void edges(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    const Drawing& drawing = console.session.drawing();
    Table table({{"#", Table::Align::right},
                 {"entity"},
                 {"edge", Table::Align::right},
                 {"segment", Table::Align::right},
                 {"path"}});
    const GxapSelectSet& set = console.session.set();
    bool isEmpty = true;
    for (GxapSelectSet::ConstIterator it = set.begin(); !it.isDone(); it.step()) {
        const selected_entity& record = *it.get();
        const int count = record.hasSubselPaths ? record.subselPathArray->logicalLength() : 0;
        for (int i = 0; i < count; ++i) {
            GxDbFullSubentPath path;
            set.getSubentPathAtSubsel(it.index, i, path);
            table.add({std::to_string(it.index), idText(drawing, it.mainEntId()), std::to_string(i),
                       std::to_string(path.subentId().index), handlePath(drawing, path.objectIds())});
            isEmpty = false;
        }
    }
    if (isEmpty)
        console.out << "set " << console.session.currentName() << " has no edges\n";
    else
        table.print(console.out, console.width);
}

void removeEdge(Console& console, const Arguments& arguments) {
    const std::vector<int> v = arguments.positions(2, 2);
    console.session.removeEdge(v[0], v[1]);
    sayCount(console, "edge taken out");
}

} // namespace

CommandGroup editCommands() {
    return {"Edits of the current set",
            {{"clear", "", "empty the current set", clear},
             {"undo", "", "take back the last edit of the current set", undo},
             {"redo", "", "do again what was taken back", redo},
             {"remove-pick", "X Y [APERTURE]", "take out the entity nearest to a point", removePick},
             {"remove-box", "X1 Y1 X2 Y2", "take out the entities wholly inside a box", removeBox},
             {"remove-crossing", "X1 Y1 X2 Y2", "take out the entities that a box touches", removeCrossing},
             {"remove-fence", "X1 Y1 X2 Y2 [X Y]...", "take out what a chain of lines crosses", removeFence},
             {"remove-id", "ID[/ID]...", "take out all under a main id, or one path of ids", removeId},
             {"remove-at", "POSITION", "take out one item", removeAt},
             {"unique", "[on|off]", "refuse duplicates; on also keeps one per main id", unique},
             {"edge", "X Y [APERTURE]", "sub-select the segment nearest to a point", edge},
             {"edges", "", "the sub-selected segments", edges},
             {"remove-edge", "POSITION EDGE", "take out a segment, and its item with the last", removeEdge}}};
}

} // namespace picker
