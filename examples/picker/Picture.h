// The drawing with everything over it that its entities were told to highlight, as SVG and as PNG.
#pragma once

#include "examples/picker/Drawing.h"

#include <string>

namespace picker {

// How many different parts the entities of the drawing keep highlighted.
std::size_t highlightCount(const Drawing& drawing);

// The drawing's file with one more group, g#highlight, of one path element for each highlighted part. Where
// nothing is highlighted it is the file as it was; a std::runtime_error where its text cannot be added to. An
// element names the entity that was told (data-main), the ids that lead to the part (data-path), and the
// marker (data-marker).
std::string pictureOf(const Drawing& drawing);

enum class Conversion { done, noProgram, failed };

// Makes a PNG of an SVG file by the program rsvg-convert.
Conversion convertToPng(const std::string& svgFile, const std::string& pngFile);

} // namespace picker
