// What commands of several groups need: texts for the user, and arguments that stand for points and ids.
#pragma once

#include "examples/picker/Commands.h"

#include <cstdint>
#include <string>
#include <vector>

namespace picker {

// ---- texts

// Returns "1 item", "2 items".
std::string plural(std::uint64_t count, const std::string& one, const std::string& many);
std::string items(std::uint64_t count);
// Returns "countless entities" for the largest number of the type.
std::string entities(std::uint64_t count);
// Returns a number with six digits, without the noise of rounding around 0.
std::string shortNumber(double value);
std::string sizeOf(const Box& box);

// Returns what textOf(id) makes of the ids of a vector of the library: "3 > 6", or "-" for none.
template <class Ids, class TextOf>
std::string pathText(const Ids& path, TextOf textOf) {
    std::string text;
    for (int i = 0; i < path.logicalLength(); ++i)
        text += (i == 0 ? "" : " > ") + textOf(path.at(i));
    return text.empty() ? "-" : text;
}

// Returns the ids as handles.
template <class Ids>
std::string handlePath(const Drawing& drawing, const Ids& path) {
    return pathText(path, [&](GxDbObjectId id) { return std::to_string(drawing.database().handleOf(id)); });
}
// Returns "-" for the null id.
std::string idText(const Drawing& drawing, GxDbObjectId id);

// Print what a pick or a removal has done to the current set.
void sayTally(Console& console, const Tally& tally);
void sayRemoved(Console& console, std::uint32_t removed);
// Prints how many items the current set has, after `what`.
void sayCount(Console& console, const std::string& what);

// Return the error of a command that needs an item or a name that is not there.
CommandError noSuchItem(const Session& session);

// ---- arguments. The functions throw CommandError if the words do not fit.

Box boxOf(const Arguments& arguments);
// Returns the points of a chain of lines: at least two.
std::vector<Point> chainOf(const Arguments& arguments);

struct PointPick {
    Point point;
    double reach;
};
PointPick pointPick(const Console& console, const Arguments& arguments);

GxDbObjectId idOf(const Drawing& drawing, const std::string& text);
// Returns a path for each word: the ids between its slashes.
std::vector<std::vector<GxDbObjectId>> idPaths(const Console& console, const Arguments& arguments);

// ---- commands that others call

void recall(Console& console, const Arguments& arguments);

} // namespace picker
