// NCollection_List of counted items, and NCollection_DataMap from main id to place in the list, both from
// Open CASCADE. Each item is a separate object behind a handle, like the owners in an interactive selection
// of Open CASCADE.
#pragma once

#include "bench/peers/Peer.h"

#include <NCollection_DataMap.hxx>
#include <NCollection_List.hxx>
#include <Standard_Address.hxx>
#include <Standard_Handle.hxx>
#include <Standard_Integer.hxx>
#include <Standard_Transient.hxx>
#include <algorithm>
#include <vector>

namespace kvbench {

struct NCollectionIdHasher {
    static Standard_Integer HashCode(const GxDbObjectId& id, Standard_Integer upper) {
        return ::HashCode(static_cast<const void*>(id.stub()), upper);
    }
    static Standard_Boolean IsEqual(const GxDbObjectId& a, const GxDbObjectId& b) { return a == b; }
};

class NCollectionState {
    struct Owner : public Standard_Transient {
        explicit Owner(const Pick& pick) : item(pick) {}
        explicit Owner(const NestedPick& pick) : item(pick) {}
        explicit Owner(const PeerItem& other) : item(other) {}

        PeerItem item;
    };
    using Items = NCollection_List<opencascade::handle<Owner>>;
    using Place = Items::Iterator;

    static const PeerItem& itemAt(const Place& place) { return place.Value()->item; }

public:
    static constexpr const char* kName = "NCollection List+DataMap";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = false;

    NCollectionState() = default;
    NCollectionState(const NCollectionState& other) {
        other.forEach([this](const PeerItem& item) { append(item); });
    }
    NCollectionState& operator=(const NCollectionState&) = delete;

    template <class Item>
    void append(const Item& item) {
        Place place;
        mItems.Append(new Owner(item), place);
        if (Run* const run = mIndex.ChangeSeek(item.mainId))
            run->others.make().push_back(place);
        else
            mIndex.Bind(item.mainId, Run{place, {}});
    }

    bool has(const GxDbObjectId& id) const { return mIndex.IsBound(id); }

    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        const Run* const run = mIndex.Seek(id);
        if (!run)
            return false;
        if (test(itemAt(run->first)))
            return true;
        const std::vector<Place>* const others = run->others.get();
        return others && std::any_of(others->begin(), others->end(),
                                     [&](const Place& place) { return test(itemAt(place)); });
    }

    // Takes the id by value: a reference might refer to a member of the item that is erased.
    template <class Test>
    bool eraseFirstOfId(GxDbObjectId id, Test test) {
        Run* const run = mIndex.ChangeSeek(id);
        if (!run)
            return false;
        std::vector<Place>* const others = run->others.get();
        Place place = run->first;
        if (!test(itemAt(place))) {
            if (!takeFirst(others, test, place))
                return false;
        } else if (others && !others->empty()) {
            run->first = others->front();
            others->erase(others->begin());
        } else {
            mIndex.UnBind(id);
        }
        removeFromList(place);
        return true;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (Place it(mItems); it.More(); it.Next())
            visit(itemAt(it));
    }

    template <class Test>
    bool anyOf(Test test) const {
        for (Place it(mItems); it.More(); it.Next()) {
            if (test(itemAt(it)))
                return true;
        }
        return false;
    }

    long positionOf(const GxDbObjectId& id) const {
        const Run* const run = mIndex.Seek(id);
        if (!run)
            return -1;
        long position = 0;
        for (Place it(mItems); !(it == run->first); it.Next())
            ++position;
        return position;
    }

    const PeerItem& at(std::size_t position) const {
        Place it(mItems);
        for (; position > 0; --position)
            it.Next();
        return itemAt(it);
    }

    std::size_t size() const { return static_cast<std::size_t>(mItems.Extent()); }

    void removeAllForward() {
        while (!mItems.IsEmpty())
            erase(mItems.First()->item);
    }

    void removeAllBackward() {
        while (!mItems.IsEmpty())
            erase(mItems.Last()->item);
    }

    void keepFirstOfEachId() {
        Index kept;
        for (Place it(mItems); it.More();) {
            if (kept.IsBound(itemAt(it).mainId)) {
                mItems.Remove(it); // also moves `it` to the next item
                continue;
            }
            kept.Bind(itemAt(it).mainId, Run{it, {}});
            it.Next();
        }
        mIndex.Exchange(kept);
    }

private:
    // The places of the items of one id, in order. Most ids have only one item.
    struct Run {
        Place first;
        Owned<std::vector<Place>> others;
    };
    using Index = NCollection_DataMap<GxDbObjectId, Run, NCollectionIdHasher>;

    template <class Test>
    static bool takeFirst(std::vector<Place>* places, Test test, Place& taken) {
        if (!places)
            return false;
        const auto found = std::find_if(places->begin(), places->end(),
                                        [&](const Place& place) { return test(itemAt(place)); });
        if (found == places->end())
            return false;
        taken = *found;
        places->erase(found);
        return true;
    }

    void erase(const PeerItem& wanted) {
        eraseFirstOfId(wanted.mainId, [&wanted](const PeerItem& item) { return &item == &wanted; });
    }

    // Removes an item from the list. A place refers to the item and to the item before it. So the place of
    // the next item becomes wrong, and this function updates that place in the index.
    void removeFromList(Place place) {
        mItems.Remove(place);
        if (!place.More())
            return;
        Run& run = *mIndex.ChangeSeek(itemAt(place).mainId);
        if (run.first == place) {
            run.first = place;
            return;
        }
        std::vector<Place>& others = *run.others.get();
        *std::find(others.begin(), others.end(), place) = place;
    }

    Items mItems;
    Index mIndex;
};
using NCollection = Peer<NCollectionState>;

} // namespace kvbench
