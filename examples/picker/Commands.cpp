#include "examples/picker/Commands.h"

#include "examples/picker/SvgValues.h"
#include "examples/picker/Table.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

namespace picker {
namespace {

constexpr int kRowsAtOnce = 20;

// ---- texts

std::string plural(std::uint64_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

std::string items(std::uint64_t count) {
    return plural(count, "item", "items");
}

std::string entities(std::uint64_t count) {
    const bool isMoreThanCounted = count == std::numeric_limits<std::uint64_t>::max();
    return isMoreThanCounted ? "countless entities" : plural(count, "entity", "entities");
}

std::string shortNumber(double value) {
    constexpr double kNoise = 1e-12; // of turning by right angles
    if (std::abs(value) < kNoise)
        value = 0;
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string sizeOf(const Box& box) {
    return shortNumber(box.high.x - box.low.x) + " x " + shortNumber(box.high.y - box.low.y);
}

std::string omissionsLine(const std::vector<Omission>& omissions) {
    std::string line;
    for (const Omission& omission : omissions) {
        line += line.empty() ? "not drawn: " : ", ";
        line += std::to_string(omission.count) + " " + omission.what;
        line += " (line " + std::to_string(omission.firstLine) + (omission.count > 1 ? "...)" : ")");
    }
    return line;
}

// ---- what items look like

template <class TextOf>
std::string pathText(const KvVector<GxDbObjectId>& path, TextOf textOf) {
    std::string text;
    for (int i = 0; i < path.logicalLength(); ++i)
        text += (i == 0 ? "" : " > ") + textOf(path.at(i));
    return text.empty() ? "-" : text;
}

std::string handlePath(const Drawing& drawing, const KvVector<GxDbObjectId>& path) {
    return pathText(path, [&](GxDbObjectId id) { return std::to_string(drawing.database().handleOf(id)); });
}

std::string labelledPath(const Drawing& drawing, const KvVector<GxDbObjectId>& path) {
    return pathText(path, [&](GxDbObjectId id) { return drawing.label(id); });
}

std::string crossingText(const GxapSelectedEntInfo* info) {
    SelFenceIntersectInfo crossing{};
    if (!info || !info->getSelFenceResultInfo(crossing))
        return "-";
    char text[64];
    std::snprintf(text, sizeof text, "segment %d at %.3f", crossing.index, crossing.param);
    return text;
}

std::string markerText(long marker) {
    return marker == -1 ? "-" : std::to_string(marker);
}

// The rows of the compound transform: x' = first row, y' = second row.
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

std::string idText(const Drawing& drawing, GxDbObjectId id) {
    return id.isNull() ? "-" : drawing.label(id);
}

void sayTally(Console& console, const Tally& tally) {
    if (tally.found == 0) {
        console.out << "nothing there; set " << console.session.currentName() << " still has "
                    << items(itemCount(console.session.set())) << '\n';
        return;
    }
    console.out << tally.found << " found: " << tally.added << " added, " << tally.refused()
                << " already in the set; set " << console.session.currentName() << " has "
                << items(itemCount(console.session.set())) << '\n';
}

GxDbObjectId idOf(const Drawing& drawing, const std::string& text) {
    const GxDbObjectId id = drawing.find(text);
    if (id.isNull())
        throw CommandError("nothing in the drawing has the id or name '" + text + "'");
    return id;
}

Box boxOf(const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(4, 4);
    return Box::between({v[0], v[1]}, {v[2], v[3]});
}

// ---- drawing

std::size_t referencesIn(const BlockDefinition& block) {
    const auto& contents = block.contents();
    return static_cast<std::size_t>(
        std::count_if(contents.begin(), contents.end(),
                      [](const BlockDefinition::Content& content) { return content.reference != nullptr; }));
}

void info(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    const Drawing& drawing = console.session.drawing();
    const std::size_t references = referencesIn(drawing.model());
    console.out << drawing.name() << ", " << sizeOf(drawing.page()) << ": "
                << entities(drawing.model().curveCount()) << " placed";
    if (references > 0)
        console.out << ", " << drawing.model().contents().size() - references << " plain, the others by "
                    << plural(references, "reference", "references") << " to "
                    << plural(drawing.blocks().size() - 1, "block", "blocks");
    console.out << '\n';
    const std::string omissions = omissionsLine(drawing.omissions());
    if (!omissions.empty())
        console.out << omissions << '\n';
}

void load(Console& console, const Arguments& arguments) {
    console.session.load(arguments.word());
    info(console, Arguments({}, ""));
}

void blocks(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    Table table({{"block"},
                 {"own entities", Table::Align::right},
                 {"references", Table::Align::right},
                 {"entities shown", Table::Align::right},
                 {"size"}});
    for (const BlockDefinition* block : console.session.drawing().blocks()) {
        const std::size_t references = referencesIn(*block);
        table.add({block == &console.session.drawing().model() ? "(the drawing)" : block->name(),
                   std::to_string(block->contents().size() - references), std::to_string(references),
                   std::to_string(block->curveCount()), sizeOf(block->box())});
    }
    table.print(console.out, console.width);
}

// ---- picks

void aperture(Console& console, const Arguments& arguments) {
    const std::vector<double> size = arguments.numbers(0, 1);
    if (!size.empty() && size[0] < 0)
        arguments.fail("the aperture cannot be negative");
    if (!size.empty())
        console.session.setAperture(size[0]);
    console.out << "point picks reach " << shortNumber(console.session.aperture()) << " units far\n";
}

void pick(Console& console, const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(2, 3);
    const double reach = v.size() == 3 ? v[2] : console.session.aperture();
    if (reach < 0)
        arguments.fail("the aperture cannot be negative");
    sayTally(console, console.session.pick({v[0], v[1]}, reach));
}

void window(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.window(boxOf(arguments)));
}

void crossing(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.crossing(boxOf(arguments)));
}

void fence(Console& console, const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(4, std::numeric_limits<std::size_t>::max());
    if (v.size() % 2 != 0)
        arguments.fail("the last point has no Y");
    std::vector<Point> chain;
    for (std::size_t i = 0; i < v.size(); i += 2)
        chain.push_back({v[i], v[i + 1]});
    sayTally(console, console.session.fence(chain));
}

void all(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    sayTally(console, console.session.all());
}

std::vector<GxDbObjectId> idPath(const Drawing& drawing, const std::string& text) {
    std::vector<GxDbObjectId> path;
    std::istringstream parts(text);
    for (std::string part; std::getline(parts, part, '/');)
        path.push_back(idOf(drawing, part));
    return path;
}

void byId(Console& console, const Arguments& arguments) {
    if (arguments.count() == 0)
        arguments.fail("an id is missing");
    Tally sum;
    for (const std::string& word : arguments.words()) {
        const Tally tally = console.session.byPath(idPath(console.session.drawing(), word));
        sum.found += tally.found;
        sum.added += tally.added;
    }
    sayTally(console, sum);
}

// ---- the current set

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
    Table table({{"#", Table::Align::right},
                 {"main id"},
                 {"sub id"},
                 {"marker", Table::Align::right},
                 {"nested path"},
                 {"fence crossing"}});
    // Only the first row's place is counted out; from there on the iterator walks.
    GxapSelectSet::ConstIterator it = set.iteratorAt(first);
    for (int row = 0; row < rows && !it.isDone(); ++row, it.step())
        addRow(table, console.session.drawing(), it);
    table.print(console.out, console.width);
    if (!it.isDone())
        console.out << "... " << itemCount(set) - static_cast<std::uint32_t>(it.index) << " more: list "
                    << it.index << '\n';
}

void item(Console& console, const Arguments& arguments) {
    const GxapSelectSet& set = console.session.set();
    const GxapSelectSet::ConstIterator it = set.iteratorAt(arguments.positions(1, 1)[0]);
    if (it.isDone())
        throw CommandError("set " + console.session.currentName() + " has " + items(itemCount(set)) +
                           ", counted from 0");
    const Drawing& drawing = console.session.drawing();
    console.out << "item " << it.index << ": main id " << idText(drawing, it.mainEntId()) << ", sub id "
                << idText(drawing, it.subEntId()) << ", marker " << markerText(it.gsMarker()) << ", placed "
                << transformText(it.selectedEntityInfo()) << "\n  path "
                << labelledPath(drawing, it.nestedEntFullPath()) << ", fence crossing "
                << crossingText(it.selectedEntityInfo()) << '\n';
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
    // Presence is a question to the index; no position is counted out for it.
    const auto found = set.findInMap(id);
    const bool isThere = found != set.sharedData->dataMap.end();
    console.out << "set " << console.session.currentName() << (isThere ? " has " : " does not have ")
                << drawing.label(id) << '\n';
}

void clear(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.session.edit().clear();
    console.out << "set " << console.session.currentName() << " is empty\n";
}

// ---- several sets

std::string setName(const Arguments& arguments) {
    const std::string& name = arguments.word();
    const bool isPlain = std::all_of(name.begin(), name.end(),
                                     [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
    if (!isPlain || name.empty())
        arguments.fail("a set's name is made of letters, digits and _");
    return name;
}

void copy(Console& console, const Arguments& arguments) {
    const std::string name = setName(arguments);
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

// ---- the session

void echo(Console& console, const Arguments& arguments) {
    console.out << arguments.joined() << '\n';
}

std::string usageOf(const Command& command) {
    return std::string(command.name) + (*command.arguments ? " " : "") + command.arguments;
}

const Command& commandOf(const std::string& name) {
    const auto found = std::find_if(commands().begin(), commands().end(),
                                    [&](const Command& command) { return name == command.name; });
    if (found == commands().end())
        throw CommandError("unknown command '" + name + "'; help lists them");
    return *found;
}

void help(Console& console, const Arguments& arguments) {
    const std::string name = arguments.optionalWord();
    std::vector<Command> chosen = commands();
    if (!name.empty())
        chosen = {commandOf(name)};
    for (const Command& command : chosen) {
        std::string usage = usageOf(command);
        usage.resize(std::max<std::size_t>(usage.size(), 32), ' ');
        console.out << usage << ' ' << command.help << '\n';
    }
}

void quit(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.isFinished = true;
}

} // namespace

const std::string& Arguments::word() const {
    if (mWords.size() != 1)
        fail(mWords.empty() ? "something is missing" : "'" + mWords[1] + "' is too much");
    return mWords.front();
}

std::string Arguments::optionalWord() const {
    return mWords.empty() ? "" : word();
}

void Arguments::expectNone() const {
    if (!mWords.empty())
        fail("'" + mWords.front() + "' is too much");
}

std::vector<double> Arguments::numbers(std::size_t fewest, std::size_t most) const {
    std::vector<double> values;
    for (const std::string& each : mWords) {
        const std::optional<std::vector<double>> parsed = parseNumbers(each);
        if (!parsed)
            fail("'" + each + "' is not a number");
        values.insert(values.end(), parsed->begin(), parsed->end());
    }
    if (values.size() < fewest)
        fail("a number is missing");
    if (values.size() > most)
        fail("there are too many numbers");
    return values;
}

std::vector<int> Arguments::positions(std::size_t fewest, std::size_t most) const {
    std::vector<int> values;
    for (const double number : numbers(fewest, most)) {
        if (number < 0 || number > std::numeric_limits<int>::max() || number != std::floor(number))
            fail("'" + shortNumber(number) + "' is not a position");
        values.push_back(static_cast<int>(number));
    }
    return values;
}

std::string Arguments::joined() const {
    std::string text;
    for (const std::string& each : mWords)
        text += (text.empty() ? "" : " ") + each;
    return text;
}

void Arguments::fail(const std::string& what) const {
    throw CommandError(what + "; usage: " + mUsage);
}

const std::vector<Command>& commands() {
    static const std::vector<Command> table{
        {"load", "FILE", "load a drawing; the sets of the old one go", load},
        {"info", "", "what the drawing holds, and what of its file is not drawn", info},
        {"blocks", "", "the blocks of the drawing", blocks},
        {"pick", "X Y [APERTURE]", "add the entity nearest to a point", pick},
        {"aperture", "[SIZE]", "how far point picks reach", aperture},
        {"window", "X1 Y1 X2 Y2", "add the entities wholly inside a box", window},
        {"crossing", "X1 Y1 X2 Y2", "add the entities that a box touches", crossing},
        {"fence", "X1 Y1 X2 Y2 [X Y]...", "add the entities that a chain of lines crosses", fence},
        {"all", "", "add everything", all},
        {"id", "ID[/ID]...", "add entities, or references, by id, name or path of ids", byId},
        {"list", "[FIRST [COUNT]]", "the items of the current set", list},
        {"item", "POSITION", "all about one item", item},
        {"count", "", "how many items the current set has", count},
        {"has", "ID", "whether the current set has items with that main id", has},
        {"clear", "", "empty the current set", clear},
        {"copy", "NAME", "copy the current set to another one", copy},
        {"use", "[NAME]", "make another set the current one, or list them", use},
        {"echo", "[TEXT]...", "print a text", echo},
        {"help", "[COMMAND]", "explain the commands", help},
        {"quit", "", "end the session", quit}};
    return table;
}

std::vector<std::string> wordsOf(const std::string& line) {
    std::vector<std::string> words;
    bool isInWord = false;
    bool isQuoted = false;
    for (const char c : line) {
        const bool isBlank = std::isspace(static_cast<unsigned char>(c)) != 0;
        if (isBlank && !isQuoted) {
            isInWord = false;
            continue;
        }
        if (c == '#' && words.empty())
            break;
        if (!isInWord)
            words.emplace_back();
        isInWord = true;
        if (c == '"')
            isQuoted = !isQuoted;
        else
            words.back() += c;
    }
    if (isQuoted)
        throw CommandError("a quotation mark is missing at the end");
    return words;
}

void runCommand(Console& console, std::vector<std::string> words) {
    if (words.empty())
        return;
    const Command& command = commandOf(words.front());
    words.erase(words.begin());
    command.run(console, Arguments(std::move(words), usageOf(command)));
}

} // namespace picker
