#include "examples/picker/window/Workbench.h"

#include "examples/picker/Commands.h"
#include "examples/picker/window/Candidates.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <new>
#include <sstream>
#include <utility>

namespace picker {
namespace {

constexpr std::size_t kLineWidth = 100; // characters of tables that commands print

// Returns the shortest text that is read as exactly this number.
std::string exactly(double value) {
    char text[32];
    const std::to_chars_result end = std::to_chars(text, text + sizeof text, value);
    return {text, end.ptr};
}

std::string coordinatesOf(const std::vector<Point>& points) {
    std::string text;
    for (const Point p : points)
        text += " " + exactly(p.x) + " " + exactly(p.y);
    return text;
}

std::string messageOf(const KvException& exception) {
    const auto* status = dynamic_cast<const KvErrorStatus*>(&exception);
    return status ? "the library reports status " + std::to_string(status->status())
                  : "the library reports an error";
}

KvVector<GxDbObjectId> toVector(const std::vector<GxDbObjectId>& path) {
    KvVector<GxDbObjectId> ids;
    ids.setLogicalLength(static_cast<int>(path.size()));
    for (std::size_t i = 0; i < path.size(); ++i)
        ids.at(static_cast<int>(i)) = path[i];
    return ids;
}

} // namespace

// Runs work that prints to a stream, and reports what it has printed, or why it failed.
template <class Work>
Workbench::Report Workbench::guarded(Work work) {
    const Drawing* const before = drawing();
    Report report;
    std::ostringstream out;
    const auto fail = [&](const std::string& message) {
        report.isError = true;
        out << message << '\n';
    };
    mSession.interrupt().reset();
    try {
        work(out, report);
        if (drawing() != before)
            mSpotlight.forget();
        mSpotlight.show(mSession.set());
    } catch (KvException* exception) { // the catcher owns it
        fail(messageOf(*std::unique_ptr<KvException>(exception)));
    } catch (const std::bad_alloc&) {
        fail("out of memory");
    } catch (const std::exception& error) {
        fail(error.what());
    }
    report.text = out.str();
    return report;
}

Workbench::Report Workbench::run(const std::string& line) {
    Report report = guarded([&](std::ostream& out, Report& done) {
        Console console{mSession, out, kLineWidth};
        runCommand(console, wordsOf(line));
        done.isFinished = console.isFinished;
    });
    report.command = line;
    return report;
}

Workbench::Report Workbench::pick(const Area& area, Change change) {
    if (change == Change::toggle)
        return toggle(area);
    return run(commandFor(area, change));
}

std::string Workbench::commandFor(const Area& area, Change change) {
    const bool adds = change == Change::add;
    if (area.kind == Area::Kind::point && area.nth > 0) {
        const std::vector<std::vector<GxDbObjectId>> paths = pathsIn(area);
        if (!paths.empty())
            return (adds ? "id " : "remove-id ") + handlesOf(paths.front());
    }
    switch (area.kind) {
    case Area::Kind::point:
        return (adds ? "pick" : "remove-pick") + coordinatesOf(area.points) + " " + exactly(area.aperture);
    case Area::Kind::window:
        return (adds ? "window" : "remove-box") + coordinatesOf(area.points);
    case Area::Kind::crossing:
        return (adds ? "crossing" : "remove-crossing") + coordinatesOf(area.points);
    case Area::Kind::fence:
        break;
    }
    return (adds ? "fence" : "remove-fence") + coordinatesOf(area.points);
}

Workbench::Report Workbench::toggle(const Area& area) {
    return guarded([&](std::ostream& out, Report&) {
        std::vector<std::vector<GxDbObjectId>> held = pathsIn(area);
        const std::size_t found = held.size();
        held.erase(
            std::remove_if(held.begin(), held.end(), [&](const auto& path) { return positionOf(path) < 0; }),
            held.end());
        std::uint32_t removed = 0;
        mSession.asOneEdit([&] {
            if (held.size() < found) {
                Console console{mSession, out, kLineWidth};
                runCommand(console, wordsOf(commandFor(area, Change::add)));
            }
            if (!held.empty())
                removed = mSession.removePaths(held);
        });
        out << found << " found, " << removed << " of them taken out\n";
    });
}

Workbench::Report Workbench::removeAt(std::vector<int> positions) {
    return guarded([&](std::ostream& out, Report&) {
        // From behind, so that the positions of the others stay.
        std::sort(positions.begin(), positions.end(), std::greater<int>());
        std::uint32_t removed = 0;
        mSession.asOneEdit([&] {
            for (const int position : positions)
                removed += mSession.removeAt(position);
        });
        out << removed << " taken out\n";
    });
}

std::vector<std::vector<GxDbObjectId>> Workbench::pathsIn(const Area& area) {
    std::vector<std::vector<GxDbObjectId>> paths;
    const Picker::Found found = [&](const Pick& pick) { paths.push_back(pick.path); };
    Picker picker(mSession.drawing(), &mSession.interrupt());
    if (area.kind == Area::Kind::point) {
        const std::vector<Pick> near = candidatesAt(mSession.drawing(), area.points.front(), area.aperture);
        if (area.nth < near.size())
            found(near[area.nth]);
    } else if (area.kind == Area::Kind::window) {
        picker.window(area.box(), found);
    } else if (area.kind == Area::Kind::crossing) {
        picker.crossing(area.box(), found);
    } else {
        picker.fence(area.points, found);
    }
    return paths;
}

std::string Workbench::handlesOf(const std::vector<GxDbObjectId>& path) const {
    std::string text;
    for (const GxDbObjectId id : path)
        text += (text.empty() ? "" : "/") + std::to_string(mSession.drawing().database().handleOf(id));
    return text;
}

int Workbench::positionOf(const std::vector<GxDbObjectId>& path) const {
    const GxapSelectSet& set = mSession.set();
    if (!set.sharedData)
        return -1;
    const bool isNested = path.size() > 1;
    const KvVector<GxDbObjectId> ids = isNested ? toVector(path) : KvVector<GxDbObjectId>();
    return set.find(path.front(), isNested ? path.back() : GxDbObjectId::kNull, &ids);
}

} // namespace picker
