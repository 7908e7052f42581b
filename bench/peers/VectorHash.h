// std::vector of items, and std::unordered_multimap from main id to index. A removed item leaves a gap.
#pragma once

#include "bench/peers/Peer.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace kvbench {

class VectorHashState {
public:
    static constexpr const char* kName = "vector+unordered_multimap";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = true;

    template <class Item>
    void append(const Item& item) {
        mIndex.emplace(item.mainId, static_cast<std::uint32_t>(mItems.size()));
        mItems.emplace_back(item);
    }

    bool has(const GxDbObjectId& id) const { return mIndex.find(id) != mIndex.end(); }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        const auto run = mIndex.equal_range(id);
        return std::any_of(run.first, run.second,
                           [&](const auto& entry) { return test(mItems[entry.second]); });
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        const auto run = mIndex.equal_range(id);
        const auto found = std::find_if(run.first, run.second,
                                        [&](const auto& entry) { return test(mItems[entry.second]); });
        if (found == run.second)
            return false;
        mItems[found->second] = PeerItem();
        mIndex.erase(found);
        return true;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (const PeerItem& item : mItems) {
            if (!item.isGap())
                visit(item);
        }
    }

    template <class Test>
    bool anyOf(Test test) const {
        return std::any_of(mItems.begin(), mItems.end(),
                           [&](const PeerItem& item) { return !item.isGap() && test(item); });
    }

    long positionOf(const GxDbObjectId& id) const {
        const auto found = mIndex.find(id);
        if (found == mIndex.end())
            return -1;
        if (mIndex.size() == mItems.size())
            return static_cast<long>(found->second);
        return std::count_if(mItems.begin(), mItems.begin() + found->second,
                             [](const PeerItem& item) { return !item.isGap(); });
    }

    const PeerItem& at(std::size_t position) const {
        if (mIndex.size() == mItems.size())
            return mItems[position];
        return *std::find_if(mItems.begin(), mItems.end(),
                             [&position](const PeerItem& item) { return !item.isGap() && position-- == 0; });
    }

    std::size_t size() const { return mIndex.size(); }

    void removeAllForward() {
        for (std::size_t i = 0; i < mItems.size(); ++i)
            removeIndex(i);
        mItems.clear();
    }

    void removeAllBackward() {
        for (; !mItems.empty(); mItems.pop_back())
            removeIndex(mItems.size() - 1);
    }

    void keepFirstOfEachId() {
        Index kept;
        for (std::size_t i = 0; i < mItems.size(); ++i) {
            PeerItem& item = mItems[i];
            if (item.isGap())
                continue;
            if (kept.find(item.mainId) == kept.end())
                kept.emplace(item.mainId, static_cast<std::uint32_t>(i));
            else
                item = PeerItem();
        }
        mIndex = std::move(kept);
    }

private:
    using Index = std::unordered_multimap<GxDbObjectId, std::uint32_t, IdHash, IdEqual>;

    void removeIndex(std::size_t i) {
        if (mItems[i].isGap())
            return;
        const auto run = mIndex.equal_range(mItems[i].mainId);
        mIndex.erase(
            std::find_if(run.first, run.second, [i](const auto& entry) { return entry.second == i; }));
        mItems[i] = PeerItem();
    }

    std::vector<PeerItem> mItems;
    Index mIndex;
};
using VectorHash = Peer<VectorHashState>;

} // namespace kvbench
