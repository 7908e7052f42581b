// Filters that choose items. A filter looks only at the main entity of an item. That is a curve of the
// drawing itself, or an outermost block reference.
#pragma once

#include "examples/picker/Drawing.h"

#include <functional>
#include <string>

namespace picker {

using Filter = std::function<bool(const BlockDefinition::Content&)>;

Filter curvesOfType(const std::string& type);
Filter referencesTo(const std::string& block);
// Matches entities whose own box is wholly inside `box`.
Filter inside(const Box& box);

} // namespace picker
