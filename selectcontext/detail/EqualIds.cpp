#include "selectcontext/detail/EqualIds.h"
#include "base/detail/Same.h"

#include <iterator>

namespace kvdetail {

EqualIds::EqualIds(std::size_t stubs)
    : mByStub(stubs), mNodes(new NodePool), mRepresentatives(Set::allocator_type(mNodes.get())),
      mLastPlace(mRepresentatives.end()) {}

std::optional<const GxDbStub*> EqualIds::find(const GxDbObjectId& id) const {
    if (const auto* const known = mByStub.find(keyOf(id)))
        return *known;
    const auto place = placeOf(id);
    if (place != mRepresentatives.end() && isSame(*place, id))
        return place->stub();
    mLastPlace.store(place, std::memory_order_relaxed);
    return std::nullopt;
}

const GxDbStub* EqualIds::add(const GxDbObjectId& id) {
    if (const auto* const known = mByStub.find(keyOf(id)))
        return *known;
    Set::const_iterator place = mLastPlace.load(std::memory_order_relaxed);
    if (!isPlaceOf(place, id))
        place = placeOf(id);
    if (place == mRepresentatives.end() || !isSame(*place, id))
        place = mRepresentatives.emplace_hint(place, id);
    mByStub.insert(keyOf(id), place->stub());
    return place->stub();
}

// Returns the place of the first id that is not less. Tries the end first, where ids in ascending order
// belong.
auto EqualIds::placeOf(const GxDbObjectId& id) const -> Set::const_iterator {
    if (mRepresentatives.empty() || *mRepresentatives.rbegin() < id)
        return mRepresentatives.end();
    return mRepresentatives.lower_bound(id);
}

// Returns whether all ids before the place are less than this id, and all ids from the place on are greater.
bool EqualIds::isPlaceOf(Set::const_iterator place, const GxDbObjectId& id) const {
    return (place == mRepresentatives.end() || id < *place) &&
           (place == mRepresentatives.begin() || *std::prev(place) < id);
}

} // namespace kvdetail
