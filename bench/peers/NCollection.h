// Open CASCADE's NCollection_List of items and NCollection_DataMap from an item's identity to its place in
// the list, as an interactive selection there holds its owners.
#pragma once

#include "bench/peers/Peer.h"

#include <NCollection_DataMap.hxx>
#include <NCollection_List.hxx>
#include <NCollection_Map.hxx>
#include <Standard_Integer.hxx>
#include <vector>

namespace kvbench {

struct IdentityHasher {
    static Standard_Integer HashCode(const Pick& key, Standard_Integer upper) {
        return ::HashCode(reinterpret_cast<std::uintptr_t>(key.mainId.stub()), upper);
    }
    static Standard_Boolean IsEqual(const Pick& a, const Pick& b) {
        return a.mainId == b.mainId && a.subId == b.subId && a.gsMarker == b.gsMarker;
    }
};

class NCollectionState {
public:
    static constexpr const char* kName = "NCollection List+DataMap";
    static constexpr std::size_t kLargest = 1000000;
    static constexpr bool kIndexesPositions = false;

    NCollectionState() = default;
    NCollectionState(const NCollectionState& other) {
        other.forEach([this](const PeerItem& item) { append(PeerItem(item)); });
    }
    NCollectionState& operator=(const NCollectionState&) = delete;

    void append(PeerItem&& item) {
        const Pick key = identity(item);
        Items::Iterator place;
        mItems.Append(item, place);
        mIndex.Bind(key, place);
    }

    bool has(const GxDbObjectId& id) const { return mIndex.IsBound(Pick{id, GxDbObjectId(), kNoMarker}); }

    // The identity is the key, so that an id's items are looked up one identity at a time.
    template <class Test>
    bool anyOfId(const GxDbObjectId& id, Test test) const {
        const Items::Iterator* const place = mIndex.Seek(Pick{id, GxDbObjectId(), kNoMarker});
        return place && test(place->Value());
    }

    template <class Test>
    bool eraseFirstOfId(const GxDbObjectId& id, Test test) {
        const Pick key{id, GxDbObjectId(), kNoMarker};
        const Items::Iterator* const place = mIndex.Seek(key);
        if (!place || !test(place->Value()))
            return false;
        Items::Iterator it = *place;
        mIndex.UnBind(key);
        removeFromList(it);
        return true;
    }

    template <class Visit>
    void forEach(Visit visit) const {
        for (Items::Iterator it(mItems); it.More(); it.Next())
            visit(it.Value());
    }

    template <class Test>
    bool anyOf(Test test) const {
        for (Items::Iterator it(mItems); it.More(); it.Next()) {
            if (test(it.Value()))
                return true;
        }
        return false;
    }

    long positionOf(const GxDbObjectId& id) const {
        long position = 0;
        for (Items::Iterator it(mItems); it.More(); it.Next(), ++position) {
            if (it.Value().mainId == id)
                return position;
        }
        return -1;
    }

    const PeerItem& at(std::size_t position) const {
        Items::Iterator it(mItems);
        for (; position > 0; --position)
            it.Next();
        return it.Value();
    }

    std::size_t size() const { return static_cast<std::size_t>(mItems.Extent()); }

    void removeAllForward() {
        while (!mItems.IsEmpty()) {
            mIndex.UnBind(identity(mItems.First()));
            mItems.RemoveFirst();
        }
    }

    void removeAllBackward() { removeAllForward(); }

    void keepFirstOfEachId() {
        NCollection_Map<Pick, IdentityHasher> seen;
        for (Items::Iterator it(mItems); it.More();) {
            const PeerItem& item = it.Value();
            if (seen.Add(Pick{item.mainId, GxDbObjectId(), kNoMarker})) {
                it.Next();
                continue;
            }
            mIndex.UnBind(identity(item));
            removeFromList(it);
        }
    }

private:
    using Items = NCollection_List<PeerItem>;

    static constexpr long kNoMarker = -1;

    static Pick identity(const PeerItem& item) {
        return {item.mainId, item.subId, isNoMarker(item.gsMarker) ? kNoMarker : item.gsMarker};
    }

    // A place in this list knows the item before it: the next item's place in the index has to follow.
    void removeFromList(Items::Iterator& it) {
        mItems.Remove(it);
        if (it.More())
            *mIndex.ChangeSeek(identity(it.Value())) = it;
    }

    Items mItems;
    NCollection_DataMap<Pick, Items::Iterator, IdentityHasher> mIndex;
};
using NCollection = Peer<NCollectionState>;

} // namespace kvbench
