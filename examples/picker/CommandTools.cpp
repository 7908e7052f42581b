#include "examples/picker/CommandTools.h"

#include <cmath>
#include <cstdio>
#include <limits>

namespace picker {
namespace {

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

} // namespace

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

void sayCount(Console& console, const std::string& what) {
    console.out << what << "; set " << console.session.currentName() << " has "
                << items(itemCount(console.session.set())) << '\n';
}

void sayRemoved(Console& console, std::uint32_t removed) {
    sayCount(console, items(removed) + " taken out");
}

CommandError noSuchItem(const Session& session) {
    return CommandError("set " + session.currentName() + " has " + items(itemCount(session.set())) +
                        ", counted from 0");
}

Box boxOf(const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(4, 4);
    return Box::between({v[0], v[1]}, {v[2], v[3]});
}

std::vector<Point> chainOf(const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(4, std::numeric_limits<std::size_t>::max());
    if (v.size() % 2 != 0)
        arguments.fail("the last point has no Y");
    std::vector<Point> chain;
    for (std::size_t i = 0; i < v.size(); i += 2)
        chain.push_back({v[i], v[i + 1]});
    return chain;
}

PointPick pointPick(const Console& console, const Arguments& arguments) {
    const std::vector<double> v = arguments.numbers(2, 3);
    const double reach = v.size() == 3 ? v[2] : console.session.aperture();
    if (reach < 0)
        arguments.fail("the aperture cannot be negative");
    return {{v[0], v[1]}, reach};
}

GxDbObjectId idOf(const Drawing& drawing, const std::string& text) {
    const GxDbObjectId id = drawing.find(text);
    if (id.isNull())
        throw CommandError("nothing in the drawing has the id or name '" + text + "'");
    return id;
}

std::vector<std::vector<GxDbObjectId>> idPaths(const Console& console, const Arguments& arguments) {
    if (arguments.count() == 0)
        arguments.fail("an id is missing");
    std::vector<std::vector<GxDbObjectId>> paths;
    for (const std::string& word : arguments.words())
        paths.push_back(idPath(console.session.drawing(), word));
    return paths;
}

} // namespace picker
