#include "examples/assembly/Commands.h"

#include "examples/picker/Table.h"

#include <algorithm>
#include <charconv>
#include <sstream>

namespace assembly {

using kvopencascade::Database;
using picker::Table;

namespace {

using Words = std::vector<std::string>;

// ---- Words

int numberOf(const std::string& word) {
    int number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc() || end != word.data() + word.size())
        throw CommandError(word + " is no whole number");
    return number;
}

void expectCount(const Words& words, std::size_t fewest, std::size_t most) {
    if (words.size() < fewest || words.size() > most)
        throw CommandError("the command takes other words: see help");
}

std::string joined(const Words& words) {
    expectCount(words, 1, 100);
    std::string text = words[0];
    for (std::size_t i = 1; i < words.size(); ++i)
        text += " " + words[i];
    return text;
}

std::string items(int count) {
    return std::to_string(count) + (count == 1 ? " item" : " items");
}

// ---- Picks

void reportAdded(Console& console, int added) {
    console.out << items(added) << " more, " << items(console.session.count()) << " in all\n";
}

void mode(Console& console, const Words& words) {
    const std::string which = joined(words);
    if (which == "part")
        return console.session.setMode(PickMode::kPart);
    if (which == "face")
        return console.session.setMode(PickMode::kFace);
    if (which == "edge")
        return console.session.setMode(PickMode::kEdge);
    throw CommandError("the mode is part, face or edge");
}

void pick(Console& console, const Words& words) {
    expectCount(words, 2, 2);
    reportAdded(console, console.session.pick(numberOf(words[0]), numberOf(words[1])));
}

void box(Console& console, const Words& words, bool crossing) {
    expectCount(words, 4, 4);
    reportAdded(console, console.session.pickBox(numberOf(words[0]), numberOf(words[1]), numberOf(words[2]),
                                                 numberOf(words[3]), crossing));
}

void inside(Console& console, const Words& words) {
    box(console, words, false);
}

void crossing(Console& console, const Words& words) {
    box(console, words, true);
}

void named(Console& console, const Words& words) {
    reportAdded(console, console.session.pickByName(joined(words)));
}

void same(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    reportAdded(console, console.session.pickSameParts());
}

void subface(Console& console, const Words& words) {
    expectCount(words, 2, 2);
    console.session.subselectFace(numberOf(words[0]), numberOf(words[1]));
}

// ---- The current set

std::string textOf(const GxDbSubentId& part) {
    switch (part.type) {
    case kvopencascade::kFace:
        return "face " + std::to_string(part.index);
    case kvopencascade::kEdge:
        return "edge " + std::to_string(part.index);
    case kvopencascade::kVertex:
        return "vertex " + std::to_string(part.index);
    default:
        return "whole";
    }
}

std::string partTextOf(const selected_entity& item) {
    if (!item.hasSubselPaths || item.subselPathArray == nullptr)
        return textOf(kvopencascade::partOf(item.gsMarker));
    std::string text;
    for (int i = 0; i < item.subselPathArray->logicalLength(); ++i)
        text += (i == 0 ? "" : ", ") + textOf(item.subselPathArray->at(i)->subentId());
    return text;
}

std::string pathTextOf(const selected_entity& item) {
    std::string text;
    for (int i = 0; i < item.nestedEntFullPath.logicalLength(); ++i)
        text += (i == 0 ? "" : " > ") + Database::nameOf(item.nestedEntFullPath.at(i));
    return text;
}

std::string placeTextOf(const selected_entity& item) {
    GxGeMatrix3d matrix;
    if (item.selectedEntityInfo == nullptr ||
        !item.selectedEntityInfo->getCompoundTransformWithBTROffset(matrix))
        return "";
    std::ostringstream text;
    text << matrix.entry[0][3] << ", " << matrix.entry[1][3] << ", " << matrix.entry[2][3];
    return text.str();
}

void list(Console& console, const Words& words) {
    expectCount(words, 0, 1);
    const int most = words.empty() ? 20 : numberOf(words[0]);
    Table table({{"#", Table::Align::right}, {"main id"}, {"sub id"}, {"part"}, {"path"}, {"placed at"}});
    int position = 0;
    for (const selected_entity& item : kv::items(console.session.picked())) {
        if (position == most)
            break;
        table.add({std::to_string(position++), Database::nameOf(item.mainEntId),
                   Database::nameOf(item.subEntId), partTextOf(item), pathTextOf(item), placeTextOf(item)});
    }
    table.print(console.out, console.width);
    if (console.session.count() > position)
        console.out << "and " << items(console.session.count() - position) << " more\n";
}

void count(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    console.out << items(console.session.count()) << '\n';
}

void remove(Console& console, const Words& words) {
    expectCount(words, 1, 1);
    console.session.remove(numberOf(words[0]));
}

void clear(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    console.session.clear();
}

void highlight(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    console.session.highlight();
}

void unhighlight(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    console.session.unhighlight();
}

// ---- Named sets

void save(Console& console, const Words& words) {
    console.session.save(joined(words));
}

void load(Console& console, const Words& words) {
    console.session.load(joined(words));
}

void sets(Console& console, const Words& words) {
    expectCount(words, 0, 0);
    Table table({{"set"}, {"items", Table::Align::right}});
    for (const auto& [name, set] : console.session.named())
        table.add({name, std::to_string(set.sharedData->entityCount)});
    table.print(console.out, console.width);
}

void combine(Console& console, const Words& words, Combination how) {
    console.session.combine(how, joined(words));
    count(console, {});
}

void unite(Console& console, const Words& words) {
    combine(console, words, Combination::kUnion);
}

void minus(Console& console, const Words& words) {
    combine(console, words, Combination::kDifference);
}

void common(Console& console, const Words& words) {
    combine(console, words, Combination::kIntersection);
}

// ---- The view

void show(Console& console, const Words& words) {
    const std::string file = joined(words);
    console.session.view().save(file);
    console.out << "wrote " << file << '\n';
}

void fit(Console& console, const Words& words) {
    expectCount(words, 0, 1);
    if (words.empty())
        return console.session.view().fit();
    console.session.fitPicked();
}

void echo(Console& console, const Words& words) {
    console.out << joined(words) << '\n';
}

void help(Console& console, const Words&) {
    Table table({{"command"}, {"does"}});
    for (const Command& command : commands())
        table.add({std::string(command.name) + " " + command.arguments, command.help});
    table.print(console.out, console.width);
}

void quit(Console& console, const Words&) {
    console.isFinished = true;
}

} // namespace

const std::vector<Command>& commands() {
    static const std::vector<Command> all{
        {"mode", "part|face|edge", "what picks find from now on", mode},
        {"pick", "X Y", "adds what is under a pixel", pick},
        {"inside", "X1 Y1 X2 Y2", "adds what is wholly in a box of pixels", inside},
        {"crossing", "X1 Y1 X2 Y2", "adds what is in a box or crosses it", crossing},
        {"named", "NAME", "adds all instances of a part", named},
        {"same", "", "adds all instances of the parts in the set", same},
        {"subface", "X Y", "adds the face under a pixel to the sub-selection of its part", subface},
        {"list", "[MOST]", "shows the set as a table", list},
        {"count", "", "counts the items", count},
        {"remove", "INDEX", "removes an item", remove},
        {"clear", "", "removes all items", clear},
        {"save", "NAME", "copies the set to a named one", save},
        {"load", "NAME", "copies a named set", load},
        {"sets", "", "lists the named sets", sets},
        {"union", "NAME", "adds the items of a named set", unite},
        {"minus", "NAME", "removes the items of a named set", minus},
        {"common", "NAME", "keeps the items that are also in a named set", common},
        {"highlight", "", "highlights the items in the view", highlight},
        {"unhighlight", "", "ends that", unhighlight},
        {"fit", "[picked]", "sees everything, or the items of the set", fit},
        {"show", "FILE.png", "writes a picture of the view", show},
        {"echo", "TEXT", "prints the text", echo},
        {"help", "", "prints this table", help},
        {"quit", "", "ends the program", quit},
    };
    return all;
}

void runLine(Console& console, const std::string& line) {
    std::istringstream in(line);
    std::string name;
    if (!(in >> name) || name.front() == '#')
        return;
    Words words;
    for (std::string word; in >> word;)
        words.push_back(word);
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command& command) { return name == command.name; });
    if (found == commands().end())
        throw CommandError("there is no command " + name + ": see help");
    found->run(console, words);
}

} // namespace assembly
