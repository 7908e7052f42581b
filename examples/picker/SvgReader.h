// Reads a drawing from an SVG file: shapes become outlines in the coordinates of the outermost viewBox, each
// target of a `use` becomes a block that exists once, and each `use` an insert of it.
//
// Styles and paints play no part, but for display and visibility. What is not drawn, or not as the file says,
// is counted in Scene::omissions.
#pragma once

#include "examples/picker/Scene.h"

#include <stdexcept>
#include <string>

namespace picker {

// The file cannot be read or is no drawing. The text names the file and, where there is one, line and column.
class DrawingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Whether elements of that name become entities.
bool isShapeType(const std::string& name);

Scene readSvg(const std::string& file);

// The same from text; `name` is what errors call it.
Scene parseSvg(const std::string& text, const std::string& name);

} // namespace picker
