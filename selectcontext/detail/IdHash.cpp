#include "selectcontext/detail/IdHash.h"

#include <iterator>
#include <new>
#include <vector>

namespace kvdetail {

// First collects the first entry of each id, and then hashes these entries. In a single pass, each hashing
// step would wait until the walk has loaded the next entry.
std::unique_ptr<IdHash> IdHash::build(const DataMap& map) noexcept try {
    auto hash = std::make_unique<IdHash>(map.size());
    std::vector<DataMap::const_iterator> firsts;
    firsts.reserve(map.size());
    auto before = map.end();
    for (auto entry = map.begin(); entry != map.end(); before = entry++) {
        if (before == map.end() || !isSame(before->first, entry->first)) {
            firsts.push_back(entry);
            continue;
        }
        if (before->first.stub() != entry->first.stub())
            return nullptr; // two stubs name one object
        hash->mHasRepeatedIds = true;
    }
    for (const auto first : firsts) {
        if (const std::uintptr_t key = keyOf(first->first))
            hash->mFirsts.insert(key, first);
    }
    hash->follow(map);
    return hash;
} catch (const std::bad_alloc&) {
    return nullptr;
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
    const std::uintptr_t key = keyOf(entry->first);
    auto* const first = mFirsts.find(key);
    if (!first || *first != entry)
        return;
    if (mHasRepeatedIds) {
        const auto behind = std::next(entry);
        if (behind != map.end() && isSame(behind->first, entry->first)) {
            *first = behind;
            return;
        }
    }
    mFirsts.erase(key);
}

} // namespace kvdetail
