// Writes the drawing, with the highlighted parts of its entities on top, as SVG and as PNG.
#pragma once

#include "examples/picker/Drawing.h"

#include <string>

namespace picker {

// Returns the number of different parts that the entities of the drawing highlight.
std::size_t highlightCount(const Drawing& drawing);

// Returns the text of the drawing's file with an additional group g#highlight. The group has one path element
// for each highlighted part. The attributes of the element name the entity that highlights the part
// (data-main), the ids that lead to the part (data-path), and the marker (data-marker). Returns the unchanged
// text if nothing is highlighted. Throws std::runtime_error if the group cannot be added to the text.
std::string pictureOf(const Drawing& drawing);

// Returns whether pictureOf() has made the text, with a highlight at least.
bool isPicture(const std::string& text);

enum class Conversion { done, noProgram, failed };

// Converts an SVG file to PNG with the program rsvg-convert. Returns noProgram if the program cannot be
// started.
Conversion convertToPng(const std::string& svgFile, const std::string& pngFile);

} // namespace picker
