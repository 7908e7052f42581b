// The colours of the window's drawing.
#pragma once

#include <QColor>

namespace picker::colours {

constexpr QColor kGround(0x1f, 0x24, 0x2b);
constexpr QColor kLine(0xc3, 0xcc, 0xd6);
constexpr QColor kHighlight(0xff, 0x3d, 0x9a);    // what the library highlights
constexpr QColor kPreHighlight(0x4d, 0xd8, 0xff); // what a click would pick
constexpr QColor kMarked(0xff, 0xd0, 0x3d);       // the rows that are chosen in the table
constexpr QColor kWindow(0x3d, 0x8b, 0xff);       // the rubber band of a window
constexpr QColor kCrossing(0x4c, 0xd0, 0x6a);     // the rubber band of a crossing
constexpr QColor kFence(0xff, 0x9b, 0x3d);

} // namespace picker::colours
