#include "examples/picker/Highlighter.h"

#include "aids/Items.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <utility>

namespace picker {

GxDbFullSubentPath partOf(const std::vector<GxDbObjectId>& ids, std::int32_t type, std::int64_t index) {
    GxDbFullSubentPath path;
    path.objectIds().setLogicalLength(static_cast<int>(ids.size()));
    for (std::size_t i = 0; i < ids.size(); ++i)
        path.objectIds().at(static_cast<int>(i)) = ids[i];
    path.subentId().type = type;
    path.subentId().index = index;
    return path;
}

bool Highlighter::Part::operator<(const Part& other) const {
    return std::tie(main, ids, type, index) < std::tie(other.main, other.ids, other.type, other.index);
}

void Highlighter::show(const std::vector<const GxapSelectSet*>& sets) {
    std::vector<Part> parts = partsOf(sets);
    std::vector<Part> gone;
    std::vector<Part> come;
    std::set_difference(mShown.begin(), mShown.end(), parts.begin(), parts.end(), std::back_inserter(gone));
    std::set_difference(parts.begin(), parts.end(), mShown.begin(), mShown.end(), std::back_inserter(come));
    // An entity looks for a highlight that ends from the newest on.
    std::reverse(gone.begin(), gone.end());
    const GxapSelectSet dark = itemsOf(gone);
    const GxapSelectSet lit = itemsOf(come);
    mShown = std::move(parts);
    dark.draw(false, false);
    lit.draw(false, true);
}

// Returns each part once, sorted.
std::vector<Highlighter::Part> Highlighter::partsOf(const std::vector<const GxapSelectSet*>& sets) {
    std::set<const GxapSelectSet::SSetData*> known;
    std::vector<Part> parts;
    for (const GxapSelectSet* set : sets) {
        if (!known.insert(set->sharedData).second)
            continue;
        for (const selected_entity& item : kv::items(*set)) {
            const KvVector<GxDbFullSubentPath*>* segments = item.highlightSegmentArray;
            for (int i = 0; segments && i < segments->logicalLength(); ++i) {
                const kvinmemory::PathContents path = kvinmemory::contentsOf(*segments->at(i));
                parts.push_back(
                    {item.mainEntId, {path.ids.begin(), path.ids.end()}, path.part.type, path.part.index});
            }
        }
    }
    std::sort(parts.begin(), parts.end());
    const auto isSame = [](const Part& a, const Part& b) { return !(a < b) && !(b < a); };
    parts.erase(std::unique(parts.begin(), parts.end(), isSame), parts.end());
    return parts;
}

// Returns a set with an item for each main entity, which highlights that entity's parts. Parts of one entity
// must be neighbours.
GxapSelectSet Highlighter::itemsOf(const std::vector<Part>& parts) {
    GxapSelectSet set;
    GxapSSetWriteAccessor& edit = static_cast<GxapSSetWriteAccessor&>(set);
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i == 0 || parts[i].main != parts[i - 1].main)
            edit.select(parts[i].main, GxDbObjectId::kNull, -1, nullptr, nullptr);
    }
    GxapSelectSet::Iterator it = edit.begin();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0 && parts[i].main != parts[i - 1].main)
            it.step();
        const GxDbFullSubentPath path = partOf(parts[i].ids, parts[i].type, parts[i].index);
        edit.setHighlightSegment(it, &path);
    }
    return set;
}

} // namespace picker
