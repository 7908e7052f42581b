#include "selectcontext/detail/IdHash.h"

#include <array>
#include <iterator>
#include <new>

namespace kvdetail {

// First collects the first entry of each id, and then hashes these entries. In a single pass, each hashing
// step would wait until the walk has loaded the next entry.
bool IdHash::addSome(const DataMap& map) noexcept try {
    std::array<DataMap::const_iterator, kEntriesPerStep> firsts;
    std::size_t count = 0;
    auto before = mNext == map.begin() ? map.end() : std::prev(mNext);
    for (std::size_t i = 0; i < kEntriesPerStep && mNext != map.end(); ++i, before = mNext++) {
        if (before == map.end() || !isSame(before->first, mNext->first)) {
            firsts[count++] = mNext;
            continue;
        }
        if (before->first.stub() != mNext->first.stub())
            return false; // two stubs name one object
        mHasRepeatedIds = true;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (const std::uintptr_t key = keyOf(firsts[i]->first))
            mFirsts.insert(key, firsts[i]);
    }
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

// Reads the entry before only if some id has several entries, since this read may miss every cache.
IdHash::DataMap::const_iterator IdHash::find(const DataMap& map, const GxDbObjectId& id) const {
    const auto* const first = mFirsts.find(keyOf(id));
    if (!first || (mHasRepeatedIds && *first != map.begin() && isSame(std::prev(*first)->first, id)))
        return map.end();
    return *first;
}

bool IdHash::noteAdded(const DataMap& map, DataMap::const_iterator entry) noexcept try {
    const std::uintptr_t key = keyOf(entry->first);
    if (key == 0)
        return true;
    if (entry != map.begin()) {
        const GxDbObjectId& before = std::prev(entry)->first;
        if (isSame(before, entry->first)) {
            mHasRepeatedIds = true;
            return keyOf(before) == key;
        }
    }
    mFirsts.insert(key, entry);
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void IdHash::noteErasing(const DataMap& map, DataMap::const_iterator entry) noexcept {
    if (mNext == entry)
        ++mNext;
    const std::uintptr_t key = keyOf(entry->first);
    auto* const first = mFirsts.find(key);
    if (!first || *first != entry)
        return;
    if (mHasRepeatedIds) {
        const auto behind = std::next(entry);
        if (behind != map.end() && keyOf(behind->first) == key) {
            *first = behind;
            return;
        }
    }
    mFirsts.erase(key);
}

} // namespace kvdetail
