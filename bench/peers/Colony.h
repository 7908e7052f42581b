// plf::colony of items, and std::unordered_multimap from main id to place. A new item may take the place of
// an erased one, and is then not the last in the colony. No measured operation adds items after it has erased
// some.
#pragma once

#include "bench/peers/Peer.h"

#include <algorithm>
#include <plf_colony.h>
#include <unordered_map>
#include <vector>

namespace kvbench {

class ColonyState {
public:
    static constexpr const char* kName = "plf::colony+unordered_multimap";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = true;

    ColonyState() = default;
    ColonyState(const ColonyState& other) {
        mItems.reserve(other.mItems.size());
        mIndex.reserve(other.mIndex.size());
        other.forEach([this](const PeerItem& item) { append(item); });
    }
    ColonyState& operator=(const ColonyState&) = delete;

    template <class Item>
    void append(const Item& item) {
        mIndex.emplace(item.mainId, mItems.emplace(item));
    }

    bool has(const GxDbObjectId& id) const { return mIndex.find(id) != mIndex.end(); }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        const auto run = mIndex.equal_range(id);
        return std::any_of(run.first, run.second, [&](const auto& entry) { return test(*entry.second); });
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        const auto run = mIndex.equal_range(id);
        const auto found =
            std::find_if(run.first, run.second, [&](const auto& entry) { return test(*entry.second); });
        if (found == run.second)
            return false;
        mItems.erase(found->second);
        mIndex.erase(found);
        return true;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (const PeerItem& item : mItems)
            visit(item);
    }

    template <class Test>
    bool anyOf(Test test) const {
        return std::any_of(mItems.begin(), mItems.end(), test);
    }

    long positionOf(const GxDbObjectId& id) const {
        const auto found = mIndex.find(id);
        if (found == mIndex.end())
            return -1;
        return distance(mItems.begin(), Items::const_iterator(found->second));
    }

    const PeerItem& at(std::size_t position) const {
        auto it = mItems.begin();
        advance(it, static_cast<std::ptrdiff_t>(position));
        return *it;
    }

    std::size_t size() const { return mItems.size(); }

    void removeAllForward() {
        for (auto it = mItems.begin(); it != mItems.end();) {
            removeEntry(it);
            it = mItems.erase(it);
        }
    }

    void removeAllBackward() {
        while (!mItems.empty()) {
            const auto last = --mItems.end();
            removeEntry(last);
            mItems.erase(last);
        }
    }

    void keepFirstOfEachId() {
        Index kept;
        for (auto it = mItems.begin(); it != mItems.end();) {
            if (kept.find(it->mainId) != kept.end()) {
                it = mItems.erase(it);
                continue;
            }
            kept.emplace(it->mainId, it);
            ++it;
        }
        mIndex = std::move(kept);
    }

private:
    using Items = plf::colony<PeerItem>;
    using Index = std::unordered_multimap<GxDbObjectId, Items::iterator, IdHash, IdEqual>;

    void removeEntry(const Items::iterator& place) {
        const auto run = mIndex.equal_range(place->mainId);
        mIndex.erase(std::find_if(run.first, run.second,
                                  [&place](const auto& entry) { return entry.second == place; }));
    }

    Items mItems;
    Index mIndex;
};
using Colony = Peer<ColonyState>;

} // namespace kvbench
