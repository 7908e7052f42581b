// What items a command is about, judged by their main entity: a curve of the drawing itself, or an outermost
// block reference.
#pragma once

#include "examples/picker/Drawing.h"

#include <functional>
#include <string>

namespace picker {

using Filter = std::function<bool(const BlockDefinition::Content&)>;

Filter curvesOfType(const std::string& type);
Filter referencesTo(const std::string& block);
// Wholly inside, by its box.
Filter inside(const Box& box);

} // namespace picker
