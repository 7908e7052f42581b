// boost::multi_index_container of items, sequenced and hashed by main id.
#pragma once

#include "bench/peers/Peer.h"

#include <algorithm>
#include <boost/multi_index/hashed_index.hpp>
#include <boost/multi_index/member.hpp>
#include <boost/multi_index/sequenced_index.hpp>
#include <boost/multi_index_container.hpp>
#include <iterator>
#include <unordered_set>

namespace kvbench {

class MultiIndexState {
public:
    static constexpr const char* kName = "Boost.MultiIndex";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = false;

    template <class Item>
    void append(const Item& item) {
        mItems.emplace_back(item);
    }

    bool has(const GxDbObjectId& id) const { return byId().find(id) != byId().end(); }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        const auto run = byId().equal_range(id);
        return std::any_of(run.first, run.second, test);
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        auto& index = mItems.get<1>();
        const auto run = index.equal_range(id);
        const auto found = std::find_if(run.first, run.second, test);
        if (found == run.second)
            return false;
        index.erase(found);
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
        const auto found = byId().find(id);
        return found == byId().end() ? -1 : std::distance(mItems.begin(), mItems.project<0>(found));
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
    using Items = boost::multi_index_container<
        PeerItem,
        boost::multi_index::indexed_by<
            boost::multi_index::sequenced<>,
            boost::multi_index::hashed_non_unique<
                boost::multi_index::member<PeerItem, GxDbObjectId, &PeerItem::mainId>, IdHash, IdEqual>>>;

    const Items::nth_index<1>::type& byId() const { return mItems.get<1>(); }

    Items mItems;
};
using MultiIndex = Peer<MultiIndexState>;

} // namespace kvbench
