#include "examples/picker/window/Spotlight.h"

#include "aids/Items.h"
#include "examples/picker/Session.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace picker {
namespace {

GxDbFullSubentPath toPath(const HighlightBook::Part& part) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(part.ids.size()));
    for (std::size_t i = 0; i < part.ids.size(); ++i)
        path.objectIds().at(static_cast<int>(i)) = part.ids[i];
    path.subentId().type = part.type;
    path.subentId().index = part.index;
    return path;
}

// Tells the entities to highlight the parts, or to end that. A set of its own passes it on: entities are told
// by drawing a set.
void tell(const std::vector<HighlightBook::Part>& parts, bool on) {
    GxapSelectSet set;
    auto& edit = static_cast<GxapSSetWriteAccessor&>(set);
    edit.setUnique(false); // an entity may have several parts
    for (const HighlightBook::Part& part : parts)
        edit.append(part.ids.front(), GxDbObjectId());
    GxapSelectSet::Iterator it = edit.begin();
    for (const HighlightBook::Part& part : parts) {
        const GxDbFullSubentPath path = toPath(part);
        edit.setHighlightSegment(it, &path);
        it.step();
    }
    set.draw(false, on);
}

} // namespace

void Spotlight::show(const GxapSelectSet& set) {
    ++mCall;
    std::vector<Part> come;
    std::size_t seen = 0;
    for (const selected_entity& item : kv::items(set)) {
        for (Part& part : partsOf(item)) {
            const auto [found, isNew] = mShown.try_emplace(part, Shown{mCall, 0, come.size()});
            if (found->second.seen != mCall)
                ++seen;
            found->second.seen = mCall;
            if (isNew)
                come.push_back(std::move(part));
        }
    }
    if (seen < mShown.size())
        tell(takeUnseen(), false);
    if (!come.empty())
        tell(come, true);
}

std::vector<Spotlight::Part> Spotlight::partsOf(const selected_entity& item) {
    if (!item.hasSubselPaths)
        return {{pathOf(item), kWholePart, item.gsMarker}};
    std::vector<Part> parts;
    const KvVector<GxDbFullSubentPath*>& edges = *item.subselPathArray;
    for (int i = 0; i < edges.logicalLength(); ++i) {
        const kvinmemory::PathContents edge = kvinmemory::contentsOf(*edges.at(i));
        parts.push_back({{edge.ids.begin(), edge.ids.end()}, edge.part.type, edge.part.index});
    }
    return parts;
}

// Takes the newest first: an entity looks for a highlight that ends from the newest on.
std::vector<Spotlight::Part> Spotlight::takeUnseen() {
    std::vector<std::pair<Part, Shown>> gone;
    for (auto it = mShown.begin(); it != mShown.end();) {
        if (it->second.seen == mCall) {
            ++it;
            continue;
        }
        gone.emplace_back(it->first, it->second);
        it = mShown.erase(it);
    }
    std::sort(gone.begin(), gone.end(), [](const auto& a, const auto& b) {
        return std::tie(a.second.since, a.second.order) > std::tie(b.second.since, b.second.order);
    });
    std::vector<Part> parts;
    for (auto& [part, shown] : gone)
        parts.push_back(std::move(part));
    return parts;
}

} // namespace picker
