// The placed entities under the mouse, which a click can pick.
#pragma once

#include "examples/picker/Picker.h"

#include <cstddef>
#include <vector>

namespace picker {

// Returns the placed entities within the aperture, nearest first, and of equally near ones the last drawn
// first. So the first one is what Picker::nearest() finds. gsMarker is the nearest segment.
std::vector<Pick> candidatesAt(const Drawing& drawing, Point p, double aperture);

} // namespace picker
