#include "examples/picker/window/Candidates.h"

#include <algorithm>
#include <utility>

namespace picker {

std::vector<Pick> candidatesAt(const Drawing& drawing, Point p, double aperture) {
    std::vector<std::pair<double, Pick>> near;
    // Every entity within the aperture touches this box. Some that touch it are farther away.
    Picker(drawing).crossing(Box::around(p, aperture), [&](const Pick& pick) {
        const Curve* const curve = drawing.curve(pick.path.back());
        const std::optional<NearestSegment> segment = nearestSegment(curve->outline(), pick.placement, p);
        if (!segment || !(segment->distance <= aperture))
            return;
        near.emplace_back(segment->distance, pick);
        near.back().second.gsMarker = segment->segment + 1;
    });
    std::reverse(near.begin(), near.end());
    std::stable_sort(near.begin(), near.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<Pick> picks;
    for (auto& [distance, pick] : near)
        picks.push_back(std::move(pick));
    return picks;
}

} // namespace picker
