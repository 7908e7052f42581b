#include "examples/picker/CommandGroups.h"

#include "examples/picker/CommandTools.h"
#include "examples/picker/SvgReader.h"
#include "examples/picker/Table.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

namespace picker {
namespace {

std::string plainName(const std::string& name, const Arguments& arguments) {
    const bool isPlain = std::all_of(name.begin(), name.end(),
                                     [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
    if (!isPlain || name.empty())
        arguments.fail("a set's name is made of letters, digits and _");
    return name;
}

std::string setName(const Arguments& arguments) {
    return plainName(arguments.word(), arguments);
}

Filter typeFilter(const std::string& type) {
    if (!isShapeType(type))
        throw CommandError("'" + type + "' is no type of entity, such as line or path");
    return curvesOfType(type);
}

Filter blockFilter(const Drawing& drawing, const std::string& name) {
    const auto& blocks = drawing.blocks();
    // Skips the first block: it is the drawing itself, and no reference places it.
    if (std::none_of(blocks.begin() + 1, blocks.end(),
                     [&](const BlockDefinition* block) { return block->name() == name; }))
        throw CommandError("there is no block '" + name + "'; blocks lists them");
    return referencesTo(name);
}

// Returns the filter that all words except the last one describe. The last word names the target set.
Filter filterOf(const Console& console, const Arguments& arguments) {
    const std::vector<std::string>& words = arguments.words();
    const Arguments rest({words.begin() + 1, words.end() - 1}, arguments.usage());
    if (words.front() == "type")
        return typeFilter(rest.word());
    if (words.front() == "block")
        return blockFilter(console.session.drawing(), rest.word());
    if (words.front() == "box")
        return inside(boxOf(rest));
    rest.fail("'" + words.front() + "' is no filter");
}

bool isFilter(const std::string& word) {
    return word == "type" || word == "block" || word == "box";
}

void sayTransfer(Console& console, const Transfer& done, const std::string& name, const std::string& verb) {
    console.out << items(done.matched) << ' ' << verb << ", " << done.added << " new there; set " << name
                << " has " << items(itemCount(console.session.set(name))) << ", set "
                << console.session.currentName() << " has " << items(itemCount(console.session.set()))
                << '\n';
}

void move(Console& console, const Arguments& arguments) {
    if (arguments.count() < 2)
        arguments.fail("a filter and a set are needed");
    const std::string name = plainName(arguments.words().back(), arguments);
    const Filter filter = filterOf(console, arguments);
    sayTransfer(console, console.session.moveMatching(filter, name), name, "moved");
}

void copy(Console& console, const Arguments& arguments) {
    if (arguments.count() > 1) {
        const std::string filtered = plainName(arguments.words().back(), arguments);
        const Filter filter = filterOf(console, arguments);
        sayTransfer(console, console.session.copyMatching(filter, filtered), filtered, "copied");
        return;
    }
    const std::string name = setName(arguments);
    if (isFilter(name))
        arguments.fail("a filter needs more words");
    console.session.copyTo(name);
    console.out << "set " << name << " is a copy of set " << console.session.currentName() << ": "
                << items(itemCount(console.session.set())) << '\n';
}

std::string sharersOf(const Session& session, const std::string& name) {
    const GxapSelectSet::SSetData* data = session.sets().at(name).sharedData;
    std::string sharers;
    for (const auto& [other, set] : session.sets()) {
        if (other != name && set.sharedData == data)
            sharers += (sharers.empty() ? "" : ", ") + other;
    }
    return sharers.empty() ? "-" : sharers;
}

void use(Console& console, const Arguments& arguments) {
    Session& session = console.session;
    if (arguments.count() > 0) {
        const std::string name = setName(arguments);
        session.use(name);
        console.out << "set " << name << " is the current one: " << items(itemCount(session.set())) << '\n';
        return;
    }
    Table table({{"set"}, {"items", Table::Align::right}, {"shares its data with"}});
    for (const auto& [each, set] : session.sets())
        table.add({each + (each == session.currentName() ? " *" : ""), std::to_string(itemCount(set)),
                   sharersOf(session, each)});
    table.print(console.out, console.width);
}

// Runs the words NAME = SET [+|- SET].
void assign(Console& console, const Arguments& arguments) {
    const std::vector<std::string>& words = arguments.words();
    if (words.size() != 3 && words.size() != 5)
        arguments.fail("this is no expression of sets");
    const std::string target = plainName(words[0], arguments);
    if (words.size() == 3)
        console.session.assign(target, words[2]);
    else if (words[3] == "+")
        console.session.unite(target, words[2], words[4]);
    else if (words[3] == "-")
        console.session.subtract(target, words[2], words[4]);
    else
        arguments.fail("'" + words[3] + "' is neither + nor -");
    console.out << "set " << target << " has " << items(itemCount(console.session.set(target))) << '\n';
}

void contains(Console& console, const Arguments& arguments) {
    const GxapSelectSet& other = console.session.set(arguments.word());
    const bool isHeld = console.session.set().contains(&other);
    console.out << "set " << console.session.currentName() << (isHeld ? " contains" : " does not contain")
                << " all of set " << arguments.word() << '\n';
}

void intersects(Console& console, const Arguments& arguments) {
    const GxapSelectSet& other = console.session.set(arguments.word());
    const bool isMet = console.session.set().intersectedWith(&other);
    console.out << "set " << console.session.currentName() << (isMet ? " has" : " has no")
                << " items in common with set " << arguments.word() << '\n';
}

// ---- sets with names

std::string wordsText(const SetWords& words) {
    char text[64];
    (void)std::snprintf(text, sizeof text, "%#lx %ld", static_cast<unsigned long>(words[0]), words[1]);
    return text;
}

void save(Console& console, const Arguments& arguments) {
    if (arguments.word().empty())
        arguments.fail("a name is missing");
    const SetWords& words = console.session.save(arguments.word());
    console.out << "saved as " << arguments.word() << ", known as " << wordsText(words) << ": "
                << items(itemCount(console.session.set())) << '\n';
}

void sets(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    if (console.session.savedSets().empty()) {
        console.out << "no set was saved\n";
        return;
    }
    Table table({{"saved as"}, {"items", Table::Align::right}, {"known as"}});
    for (const auto& [name, words] : console.session.savedSets())
        table.add({name, std::to_string(itemCount(console.session.saved(name))), wordsText(words)});
    table.print(console.out, console.width);
}

void drop(Console& console, const Arguments& arguments) {
    console.session.drop(arguments.word());
    console.out << arguments.word() << " is dropped\n";
}

} // namespace

void recall(Console& console, const Arguments& arguments) {
    console.session.recall(arguments.word());
    console.out << "set " << console.session.currentName() << " is what was saved as " << arguments.word()
                << ": " << items(itemCount(console.session.set())) << '\n';
}

CommandGroup setCommands() {
    return {"Several sets",
            {{"use", "[SET]", "make another or a new set current, or list them", use},
             {"copy", "[FILTER] SET", "copy the set, or add its matching items to SET", copy},
             {"move", "FILTER SET", "the same, and take them out of the current set", move},
             {kAssign, "NAME = SET [+|- SET]", "a copy, the union or the difference of sets", assign},
             {"contains", "SET", "whether the current set has all items of SET", contains},
             {"intersects", "SET", "whether the current set has any item of SET", intersects},
             {"save", "NAME", "hand the current set to the list of named sets", save},
             {"sets", "", "the named sets, and the two words of each", sets},
             {"recall", "NAME", "make the current set what was saved as NAME", recall},
             {"drop", "NAME", "delete a named set", drop}}};
}

} // namespace picker
