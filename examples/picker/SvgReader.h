// Reads a drawing from an SVG file. Shapes become outlines. Each target of a `use` becomes one block, and
// each `use` becomes an insert of that block. The coordinates of the drawing are those of the outermost
// viewBox.
//
// Style attributes are read, as far as they say where and whether something is drawn. Style sheets are not.
// Scene::omissions counts what is not drawn, or not drawn as the file says.
#pragma once

#include "examples/picker/DrawingError.h"
#include "examples/picker/Interrupt.h"
#include "examples/picker/Scene.h"

#include <cstddef>
#include <string>

namespace picker {

// A drawing that is larger is refused, before it takes all memory.
struct DrawingLimits {
    std::size_t bytes = std::size_t{256} * 1024 * 1024;
    std::size_t contents = 2'000'000; // entities and references in all blocks
};

// Returns whether elements with this name become entities.
bool isShapeType(const std::string& name);

// Throws DrawingError, and Cancelled if `interrupt` is not null and requests it.
Scene readSvg(const std::string& file, Interrupt* interrupt = nullptr, const DrawingLimits& limits = {});

// Reads a drawing from a text. Error messages call the text `name`. Throws what readSvg() throws.
Scene parseSvg(const std::string& text, const std::string& name, Interrupt* interrupt = nullptr,
               const DrawingLimits& limits = {});

} // namespace picker
