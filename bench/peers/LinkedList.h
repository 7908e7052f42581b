// std::list with linear search. A first version of an application is often written like this.
#pragma once

#include "bench/peers/Peer.h"

#include <algorithm>
#include <iterator>
#include <list>
#include <unordered_set>

namespace kvbench {

class LinkedListState {
public:
    static constexpr const char* kName = "list, linear search";
    static constexpr std::size_t kLargest = 100;
    static constexpr bool kIndexesPositions = false;

    template <class Item>
    void append(const Item& item) {
        mItems.emplace_back(item);
    }

    bool has(const GxDbObjectId& id) const {
        return anyOf([&id](const PeerItem& item) { return item.mainId == id; });
    }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        return anyOf([&](const PeerItem& item) { return item.mainId == id && test(item); });
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        const auto found = std::find_if(mItems.begin(), mItems.end(), [&](const PeerItem& item) {
            return item.mainId == id && test(item);
        });
        if (found == mItems.end())
            return false;
        mItems.erase(found);
        return true;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        std::for_each(mItems.begin(), mItems.end(), visit);
    }

    template <class Test>
    bool anyOf(Test test) const {
        return std::any_of(mItems.begin(), mItems.end(), test);
    }

    long positionOf(const GxDbObjectId& id) const {
        const auto found = std::find_if(mItems.begin(), mItems.end(),
                                        [&id](const PeerItem& item) { return item.mainId == id; });
        return found == mItems.end() ? -1 : std::distance(mItems.begin(), found);
    }

    const PeerItem& at(std::size_t position) const {
        return *std::next(mItems.begin(), static_cast<std::ptrdiff_t>(position));
    }

    std::size_t size() const { return mItems.size(); }

    void removeAllForward() {
        while (!mItems.empty())
            mItems.pop_front();
    }

    void removeAllBackward() {
        while (!mItems.empty())
            mItems.pop_back();
    }

    void keepFirstOfEachId() {
        std::unordered_set<GxDbObjectId, IdHash, IdEqual> seen;
        mItems.remove_if([&seen](const PeerItem& item) { return !seen.insert(item.mainId).second; });
    }

private:
    std::list<PeerItem> mItems;
};
using LinkedList = Peer<LinkedListState>;

} // namespace kvbench
