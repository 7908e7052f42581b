// The hash beside the id index.

#include "selectcontext/IdHash.h"
#include "base/KvSpread.h"

#include <iterator>
#include <new>

namespace kvdetail {
namespace {

constexpr std::size_t kFewestPlaces = 16;

// At most three places in five are taken.
std::size_t placesFor(std::size_t stubs) noexcept {
    std::size_t places = kFewestPlaces;
    while (places * 3 < (stubs + 1) * 5)
        places *= 2;
    return places;
}

} // namespace

// In two steps: walking through the index waits for one entry after the other, entering stubs need not wait
// for their places.
std::unique_ptr<IdHash> IdHash::build(const DataMap& map) noexcept try {
    constexpr std::size_t kAhead = 16;
    auto hash = std::make_unique<IdHash>();
    Places runs;
    if (!hash->collectRuns(map, runs))
        return nullptr;
    hash->mShift = commonZeros(runs);
    hash->mPlaces.resize(placesFor(map.size()));
    for (std::size_t i = 0; i < runs.size(); ++i) {
        if (runs.size() - i > kAhead)
            __builtin_prefetch(&hash->mPlaces[hash->homeOf(runs[i + kAhead].stub)], 1);
        hash->enter(runs[i].stub, runs[i].first);
    }
    hash->follow(map);
    return hash;
} catch (const std::bad_alloc&) {
    return nullptr;
}

// The first entry of every id's run. False where two stubs name one object, null among them.
bool IdHash::collectRuns(const DataMap& map, Places& runs) {
    runs.reserve(map.size());
    auto before = map.end();
    for (auto entry = map.begin(); entry != map.end(); before = entry++) {
        const GxDbStub* const stub = entry->first.stub();
        if (before == map.end() || !(before->first == entry->first)) {
            if (stub) // null has no place
                runs.push_back({stub, entry});
            continue;
        }
        if (before->first.stub() != stub)
            return false;
        mHasTwins = true;
    }
    return true;
}

// The number of low bits in which no two stubs differ.
unsigned IdHash::commonZeros(const Places& runs) noexcept {
    std::uintptr_t differences = 0;
    const auto bits = [](const Place& run) { return reinterpret_cast<std::uintptr_t>(run.stub); };
    for (const Place& run : runs)
        differences |= bits(run) ^ bits(runs.front());
    return differences == 0 ? 0 : static_cast<unsigned>(__builtin_ctzll(differences));
}

bool IdHash::isCurrent(const DataMap& map) const noexcept {
    const KvNodePool* const pool = map.get_allocator().pool();
    return pool && pool == mPool.get() && pool->changes() == mChanges && pool->live() == map.size();
}

IdHash::DataMap::const_iterator IdHash::find(const DataMap& map, const GxDbObjectId& id) const {
    const Place& place = mPlaces[placeOf(id.stub())];
    if (!place.stub || !(place.first->first == id))
        return map.end();
    if (mHasTwins && place.first != map.begin() && std::prev(place.first)->first == id)
        return map.end();
    return place.first;
}

bool IdHash::noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept {
    const GxDbStub* const stub = entry->first.stub();
    if (!stub)
        return true; // has no place
    if (entry != map.begin()) {
        const auto before = std::prev(entry);
        if (before->first == entry->first) {
            mHasTwins = true;
            return before->first.stub() == stub;
        }
    }
    if (!hasRoom()) {
        try {
            grow();
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    enter(stub, entry);
    return true;
}

void IdHash::noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept {
    const GxDbStub* const stub = entry->first.stub();
    const std::size_t place = placeOf(stub);
    if (!stub || mPlaces[place].first != entry || !mPlaces[place].stub)
        return;
    if (mHasTwins) { // only then: the entry behind may be in no cache
        const auto behind = std::next(entry);
        if (behind != map.end() && behind->first == entry->first) {
            mPlaces[place].first = behind;
            return;
        }
    }
    removePlace(place);
}

// Neighbouring stubs share a group of places, so that walking through ids in order walks through the table,
// too; the groups are spread over the table.
std::size_t IdHash::homeOf(const GxDbStub* stub) const noexcept {
    constexpr unsigned kGroup = 4;
    const std::uintptr_t number = reinterpret_cast<std::uintptr_t>(stub) >> mShift;
    const std::uintptr_t group = spread(number / kGroup) >> 20;
    return (group * kGroup + number % kGroup) & (mPlaces.size() - 1);
}

// The stub's place, or the free one where it would be entered.
std::size_t IdHash::placeOf(const GxDbStub* stub) const noexcept {
    std::size_t i = homeOf(stub);
    while (mPlaces[i].stub && mPlaces[i].stub != stub)
        i = next(i);
    return i;
}

void IdHash::enter(const GxDbStub* stub, DataMap::const_iterator first) noexcept {
    mPlaces[placeOf(stub)] = {stub, first};
    ++mUsed;
}

// Places behind a freed one move up, so that none is cut off from its home.
void IdHash::removePlace(std::size_t i) noexcept {
    const std::size_t mask = mPlaces.size() - 1;
    for (std::size_t j = next(i); mPlaces[j].stub; j = next(j)) {
        const std::size_t home = homeOf(mPlaces[j].stub);
        if (((j - home) & mask) < ((j - i) & mask))
            continue;
        mPlaces[i] = mPlaces[j];
        i = j;
    }
    mPlaces[i].stub = nullptr;
    --mUsed;
}

void IdHash::grow() {
    Places old(2 * mPlaces.size());
    old.swap(mPlaces);
    mUsed = 0;
    for (const Place& place : old) {
        if (place.stub)
            enter(place.stub, place.first);
    }
}

} // namespace kvdetail
