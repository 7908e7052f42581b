#include "examples/picker/Commands.h"

#include "examples/picker/Picture.h"
#include "examples/picker/SvgReader.h"
#include "examples/picker/SvgValues.h"
#include "examples/picker/Table.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
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
    constexpr double kNoise = 1e-12; // more than the rounding error of a turn by 90 degrees
    if (std::abs(value) < kNoise)
        value = 0;
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

std::string sizeOf(const Box& box) {
    return shortNumber(box.high.x - box.low.x) + " x " + shortNumber(box.high.y - box.low.y);
}

std::string omissionsLine(const std::vector<Omission>& omissions) {
    constexpr std::size_t kMostKinds = 12;
    std::string line;
    for (std::size_t i = 0; i < std::min(omissions.size(), kMostKinds); ++i) {
        const Omission& omission = omissions[i];
        line += line.empty() ? "not drawn: " : ", ";
        line += std::to_string(omission.count) + " " + shortened(omission.what, 60);
        line += " (line " + std::to_string(omission.firstLine) + (omission.count > 1 ? "...)" : ")");
    }
    if (omissions.size() > kMostKinds)
        line += ", and " + std::to_string(omissions.size() - kMostKinds) + " kinds more";
    return line;
}

// ---- how items are printed

template <class Ids, class TextOf>
std::string pathText(const Ids& path, TextOf textOf) {
    std::string text;
    for (int i = 0; i < path.logicalLength(); ++i)
        text += (i == 0 ? "" : " > ") + textOf(path.at(i));
    return text.empty() ? "-" : text;
}

template <class Ids>
std::string handlePath(const Drawing& drawing, const Ids& path) {
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

void sayRemoved(Console& console, std::uint32_t removed) {
    console.out << items(removed) << " taken out; set " << console.session.currentName() << " has "
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

void recall(Console& console, const Arguments& arguments) {
    console.session.recall(arguments.word());
    console.out << "set " << console.session.currentName() << " is what was saved as " << arguments.word()
                << ": " << items(itemCount(console.session.set())) << '\n';
}

void load(Console& console, const Arguments& arguments) {
    if (console.session.savedSets().count(arguments.word()) > 0) {
        recall(console, arguments);
        return;
    }
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

struct PointPick {
    Point point;
    double reach;
};

PointPick pointPick(const Console& console, const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(2, 3);
    const double reach = v.size() == 3 ? v[2] : console.session.aperture();
    if (reach < 0)
        arguments.fail("the aperture cannot be negative");
    return {{v[0], v[1]}, reach};
}

void pick(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    sayTally(console, console.session.pick(where.point, where.reach));
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

// Splits the text at slashes and returns the ids. A text without a slash is one id.
std::vector<GxDbObjectId> idPath(const Drawing& drawing, const std::string& text) {
    std::vector<GxDbObjectId> path;
    std::size_t begin = 0;
    for (std::size_t end = text.find('/'); end != std::string::npos; end = text.find('/', begin)) {
        path.push_back(idOf(drawing, text.substr(begin, end - begin)));
        begin = end + 1;
    }
    path.push_back(idOf(drawing, text.substr(begin)));
    return path;
}

std::vector<std::vector<GxDbObjectId>> idPaths(const Console& console, const Arguments& arguments) {
    if (arguments.count() == 0)
        arguments.fail("an id is missing");
    std::vector<std::vector<GxDbObjectId>> paths;
    for (const std::string& word : arguments.words())
        paths.push_back(idPath(console.session.drawing(), word));
    return paths;
}

void byId(Console& console, const Arguments& arguments) {
    sayTally(console, console.session.byPaths(idPaths(console, arguments)));
}

// ---- the current set

void addRow(Table& table, const Drawing& drawing, const GxapSelectSet::ConstIterator& it) {
    table.add({std::to_string(it.index), idText(drawing, it.mainEntId()), idText(drawing, it.subEntId()),
               markerText(it.gsMarker()), handlePath(drawing, it.nestedEntFullPath()),
               crossingText(it.selectedEntityInfo())});
}

CommandError noSuchItem(const Session& session) {
    return CommandError("set " + session.currentName() + " has " + items(itemCount(session.set())) +
                        ", counted from 0");
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

void clear(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.session.clear();
    console.out << "set " << console.session.currentName() << " is empty\n";
}

// ---- edits of the current set

void removePick(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    sayRemoved(console, console.session.removeNearest(where.point, where.reach));
}

void removeBox(Console& console, const Arguments& arguments) {
    sayRemoved(console, console.session.removeInside(boxOf(arguments)));
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

// ---- edges

void edge(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    const Tally tally = console.session.addEdge(where.point, where.reach);
    const char* const done = tally.found == 0 ? "nothing there" : "already among the edges";
    console.out << (tally.added > 0 ? "edge added" : done) << "; set " << console.session.currentName()
                << " has " << items(itemCount(console.session.set())) << '\n';
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
    console.out << "edge taken out; set " << console.session.currentName() << " has "
                << items(itemCount(console.session.set())) << '\n';
}

// ---- highlights

void sayHighlights(Console& console) {
    const std::size_t count = highlightCount(console.session.drawing());
    console.out << "the drawing shows " << plural(count, "highlight", "highlights") << '\n';
}

void highlight(Console& console, const Arguments& arguments) {
    const std::vector<int> positions = arguments.positions(0, std::numeric_limits<std::size_t>::max());
    if (positions.empty())
        console.session.highlightAll();
    console.session.highlight(positions);
    sayHighlights(console);
}

void highlightEdge(Console& console, const Arguments& arguments) {
    const PointPick where = pointPick(console, arguments);
    const std::optional<int> position = console.session.highlightSegment(where.point, where.reach);
    console.out << (position ? "of item " + std::to_string(*position) : "nothing there") << "; ";
    sayHighlights(console);
}

void unhighlight(Console& console, const Arguments& arguments) {
    const std::vector<int> positions = arguments.positions(0, std::numeric_limits<std::size_t>::max());
    if (positions.empty())
        console.session.unhighlightAll();
    console.session.unhighlight(positions);
    sayHighlights(console);
}

// Returns the name of the picture file. Throws CommandError if that file is the drawing itself.
std::filesystem::path pictureFile(const Session& session, const Arguments& arguments) {
    std::filesystem::path file = arguments.optionalWord();
    if (file.empty())
        file = std::filesystem::path(session.drawing().name()).stem().string() + "-highlight.svg";
    if (file.extension() != ".svg")
        arguments.fail("'" + file.string() + "' is not the name of an .svg file");
    std::error_code isUnrelated;
    if (!session.file().empty() && std::filesystem::equivalent(file, session.file(), isUnrelated))
        throw CommandError(file.string() + " is the drawing itself");
    return file;
}

void writeFile(const std::filesystem::path& file, const std::string& text) {
    std::error_code failure; // not checked: after a failure, the file cannot be opened
    if (file.has_parent_path())
        std::filesystem::create_directories(file.parent_path(), failure);
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.close();
    if (!out)
        throw CommandError(file.string() + " cannot be written");
}

void show(Console& console, const Arguments& arguments) {
    const Drawing& drawing = console.session.drawing();
    const std::filesystem::path svg = pictureFile(console.session, arguments);
    std::filesystem::path png = svg;
    png.replace_extension(".png");
    writeFile(svg, pictureOf(drawing));
    const Conversion conversion = convertToPng(svg.string(), png.string());
    if (conversion != Conversion::done)
        throw CommandError(
            svg.string() + " is written, but no PNG: rsvg-convert " +
            (conversion == Conversion::noProgram ? "is not installed (package librsvg2-bin)" : "failed"));
    console.out << plural(highlightCount(drawing), "highlight", "highlights") << " in " << svg.string()
                << " and " << png.string() << '\n';
}

// ---- several sets

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

// ---- the session

void echo(Console& console, const Arguments& arguments) {
    console.out << arguments.joined() << '\n';
}

// The only command whose name is between its arguments.
constexpr const char* kAssign = "=";

std::string usageOf(const Command& command) {
    if (command.name == std::string(kAssign))
        return command.arguments;
    return std::string(command.name) + (*command.arguments ? " " : "") + command.arguments;
}

constexpr const char* kFilterHelp = "FILTER is type TYPE, block BLOCK or box X1 Y1 X2 Y2";

bool takesFilter(const Command& command) {
    return std::string(command.arguments).find("FILTER") != std::string::npos;
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
        usage.resize(std::max<std::size_t>(usage.size(), 29), ' ');
        console.out << usage << ' ' << command.help << '\n';
    }
    if (std::any_of(chosen.begin(), chosen.end(), takesFilter))
        console.out << kFilterHelp << ", and asks about main ids\n";
}

void quit(Console& console, const Arguments& arguments) {
    arguments.expectNone();
    console.isFinished = true;
}

} // namespace

const std::string& Arguments::word() const {
    if (mWords.size() != 1)
        fail(mWords.empty() ? "a word is missing" : "'" + mWords[1] + "' is too much");
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
        {"load", "FILE|NAME", "load a drawing, whose old sets go, or a saved set", load},
        {"info", "", "what the drawing holds, and what is not drawn", info},
        {"blocks", "", "the blocks of the drawing", blocks},
        {"pick", "X Y [APERTURE]", "add the entity nearest to a point", pick},
        {"aperture", "[SIZE]", "how far point picks reach", aperture},
        {"window", "X1 Y1 X2 Y2", "add the entities wholly inside a box", window},
        {"crossing", "X1 Y1 X2 Y2", "add the entities that a box touches", crossing},
        {"fence", "X1 Y1 X2 Y2 [X Y]...", "add the entities that a chain of lines crosses", fence},
        {"all", "", "add everything", all},
        {"id", "ID[/ID]...", "add what has an id, a name or a path of ids", byId},
        {"list", "[FIRST [COUNT]]", "the items of the current set", list},
        {"item", "POSITION", "all about one item, with its path resolved", item},
        {"count", "", "how many items the current set has", count},
        {"has", "ID", "whether items have that main id", has},
        {"clear", "", "empty the current set", clear},
        {"remove-pick", "X Y [APERTURE]", "take out the entity nearest to a point", removePick},
        {"remove-box", "X1 Y1 X2 Y2", "take out the entities wholly inside a box", removeBox},
        {"remove-id", "ID[/ID]...", "take out all under a main id, or one path of ids", removeId},
        {"remove-at", "POSITION", "take out one item", removeAt},
        {"unique", "[on|off]", "refuse duplicates; on also keeps one per main id", unique},
        {"edge", "X Y [APERTURE]", "sub-select the segment nearest to a point", edge},
        {"edges", "", "the sub-selected segments", edges},
        {"remove-edge", "POSITION EDGE", "take out a segment, and its item with the last", removeEdge},
        {"highlight", "[POSITION]...", "highlight items, or the whole current set", highlight},
        {"highlight-edge", "X Y [APERTURE]", "highlight the segment nearest to a point", highlightEdge},
        {"unhighlight", "[POSITION]...", "no more highlight items, or the whole set", unhighlight},
        {"show", "[FILE.svg]", "write drawing and highlights, as SVG and as PNG", show},
        {"copy", "[FILTER] NAME", "copy the set, or add its matching items to NAME", copy},
        {"move", "FILTER NAME", "the same, and take them out of the current set", move},
        {kAssign, "NAME = SET [+|- SET]", "a copy, the union or the difference of sets", assign},
        {"contains", "NAME", "whether the current set has all items of NAME", contains},
        {"intersects", "NAME", "whether the current set has any item of NAME", intersects},
        {"save", "NAME", "hand the current set to the list of named sets", save},
        {"sets", "", "the named sets, and the two words of each", sets},
        {"recall", "NAME", "make the current set what was saved as NAME", recall},
        {"drop", "NAME", "delete a named set", drop},
        {"use", "[NAME]", "make another or a new set current, or list them", use},
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
    const bool isHelp = words.size() == 2 && words[0] == "help";
    if (words.size() > 1 && words[1] == kAssign && !isHelp)
        words.insert(words.begin(), kAssign);
    const Command& command = commandOf(words.front());
    words.erase(words.begin());
    const std::string filterHelp = takesFilter(command) ? std::string("; ") + kFilterHelp : "";
    command.run(console, Arguments(std::move(words), usageOf(command) + filterHelp));
}

} // namespace picker
