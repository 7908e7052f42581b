#include "selectcontext/detail/EqualIds.h"
#include "base/detail/Same.h"

#include <iterator>

namespace kvdetail {

EqualIds::EqualIds()
    : mNodes(new NodePool), mRepresentatives(Set::allocator_type(mNodes.get())),
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

// mLastPlace saves a search if find() has just looked for this id. If mRepresentatives has an equal id,
// emplace_hint() adds nothing and returns the place of the equal id.
const GxDbStub* EqualIds::add(const GxDbObjectId& id) {
    if (const auto* const known = mByStub.find(keyOf(id)))
        return *known;
    const std::size_t before = size();
    const auto place = mRepresentatives.emplace_hint(mLastPlace.load(std::memory_order_relaxed), id);
    try {
        mByStub.insert(keyOf(id), place->stub());
    } catch (...) {
        if (size() != before)
            mRepresentatives.erase(place);
        throw;
    }
    return place->stub();
}

// Returns the place of the first id in mRepresentatives that is not less than `id`. Tries the end first,
// since ids that come in ascending order belong there.
auto EqualIds::placeOf(const GxDbObjectId& id) const -> Set::const_iterator {
    if (mRepresentatives.empty() || *mRepresentatives.rbegin() < id)
        return mRepresentatives.end();
    return mRepresentatives.lower_bound(id);
}

} // namespace kvdetail
