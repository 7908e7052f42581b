// Reads a drawing from an SVG file. Shapes become outlines. Each target of a `use` becomes one block, and
// each `use` becomes an insert of that block. The coordinates of the drawing are those of the outermost
// viewBox.
//
// Styles and paints are ignored, except for display and visibility. Scene::omissions counts what is not
// drawn, or not drawn as the file says.
#pragma once

#include "examples/picker/Scene.h"

#include <stdexcept>
#include <string>

namespace picker {

// Thrown if the file cannot be read or is no drawing. The text names the file and, if known, line and column.
class DrawingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Returns whether elements with this name become entities.
bool isShapeType(const std::string& name);

Scene readSvg(const std::string& file);

// Reads a drawing from a text. Error messages call the text `name`.
Scene parseSvg(const std::string& text, const std::string& name);

} // namespace picker
