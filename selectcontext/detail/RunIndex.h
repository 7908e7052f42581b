// RunIndex: finds an item among many of one main id.
#pragma once

#include "selectcontext/GxapSelectSet.h"
#include "selectcontext/detail/EqualIds.h"
#include "selectcontext/detail/HashTable.h"
#include "selectcontext/detail/ItemKeys.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

namespace kvdetail {

// A hash table of the items of one main id, which are neighbours in the id index. Items with equal keys form
// a chain, in the order of the id index. An item is hashed by the keys that its record had when the item was
// added. So users must compare the record that they find.
//
// Invariants:
//  1. The entries of all items have the same stub.
//  2. Items are numbered in the order of the id index. The number of an erased item is not given to another
//     item.
//  3. Every item that was added and not erased is in one chain.
//
// Thread safety: only one thread may add and erase items. Any number of threads may look items up at once.
class RunIndex {
public:
    using DataMap = GxapSelectSet::SSetData::DataMap;
    using Store = GxapSelectSet::SSetData::Store;
    using Entry = DataMap::const_iterator;

    // The keys that items are hashed by, in addition to their sub ids.
    enum class Keys { kMarker, kMarkerAndPath };

    // Returns the keys that items must be hashed by, so that a look-up with `keys` finds them.
    static Keys keysFor(const ItemKeys& keys) noexcept {
        return keys.path ? Keys::kMarkerAndPath : Keys::kMarker;
    }

    // A look-up in a run of at most this many items walks through the run, and needs no index.
    static constexpr std::size_t kFewestItems = 64;

    // Indexes the run of entries that begins at `first`. Returns null if two stubs name the main id, or if
    // there is no memory. O(n), or O(n log n) if the order of the sub ids is not that of their stubs.
    static std::unique_ptr<RunIndex> build(const DataMap& map, Entry first, const Store& store,
                                           Keys keys) noexcept;

    const GxDbStub* mainStub() const noexcept { return mMainStub; }
    Keys keys() const noexcept { return mKeys; }

    // Returns whether the index can find items by these keys. For Markers::kAny, returns false if the items
    // have more than kMostMarkers different markers.
    bool canFind(const ItemKeys& keys) const noexcept {
        return keys.markers != Markers::kAny || !mHasManyMarkers;
    }

    // Returns the first entry that may have the keys and for which passes(entry) is true. Returns null if
    // there is none. canFind() must be true for the keys. O(1), or O(log n) for an id that no item has. Every
    // item of equal keys that does not pass adds O(1).
    template <class Passes>
    const Entry* find(const ItemKeys& keys, Passes passes) const {
        const Hash stubs = hashOfStubs(keys.subId, keys.path);
        if (const Entry* const found = firstThat(passes, chainsOf(keys, stubs)))
            return found;
        const std::optional<Hash> equals = hashOfEquals(keys.subId, keys.path);
        return equals && *equals != stubs ? firstThat(passes, chainsOf(keys, *equals)) : nullptr;
    }

    // Returns the entry behind the run. O(1).
    Entry end() const noexcept { return std::next(mLast); }

    // Adds the item of an entry that was added at the end of the run. Returns false if the entry has another
    // stub than the other entries, or if there is no memory. The caller must then delete the index. Amortised
    // O(1), or O(log n) for an id that no item has.
    bool noteAdded(Entry entry, const selected_entity& record) noexcept;

    // Updates the item of a record before the record gets another path. `address` must be that of the
    // record's slot. Returns false if the item is not found, or if there is no memory. The caller must then
    // delete the index. Costs as much as noteAdded(), plus O(1) for every item with equal keys.
    bool noteChangingPath(unsigned long address, const selected_entity& record,
                          const KvVector<GxDbObjectId>& path) noexcept;

    // Removes the item of an entry before the entry is erased. `record` must be the item's record, or null if
    // there is no such record. Returns false if `record` is null, if the item is not found by the record's
    // keys, or if few items are left. The caller must then delete the index. O(1), plus O(1) for every item
    // with equal keys before this item.
    //
    // Also returns false if the entry before the last one has another stub. That happens only if the
    // application has changed the order of ids, which it must not do. An index that kept such an entry would
    // not be told when the entry is erased.
    bool noteErasing(const DataMap& map, Entry entry, const selected_entity* record) noexcept;

private:
    friend class LongRuns;
    using Number = std::uint32_t;
    using Hash = std::uint64_t; // of a sub id and a path
    static constexpr Number kNone = 0xFFFFFFFFu;
    // An index whose items have more different markers finds no items of any marker: canFind() then returns
    // false for Markers::kAny.
    static constexpr std::size_t kMostMarkers = 4;

    struct Item {
        Entry entry;
        Number next = kNone; // the next item of the chain
    };
    struct Chain {
        Number first;
        Number last;
    };

    // The chains that a look-up searches: one for each marker that matches the wanted marker.
    class Chains {
    public:
        Chains() noexcept { mHeads.fill(kNone); }
        void add(Number first) noexcept { mHeads[mCount++] = first; }
        Number first() const noexcept { return *std::min_element(mHeads.data(), mHeads.data() + mCount); }
        bool isEmpty() const noexcept { return mCount == 0; }
        Number next(const std::vector<Item>& items) noexcept;

    private:
        std::array<Number, kMostMarkers> mHeads;
        std::size_t mCount = 0;
    };

    RunIndex(Entry first, Keys keys, std::size_t items);

    // Returns the hash of the stubs of the given ids. With this hash, a look-up finds items only if each stub
    // represents its object.
    Hash hashOfStubs(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const;
    // Returns the hash of the stubs that represent the given ids. Returns nothing if mIds lacks one of them.
    std::optional<Hash> hashOfEquals(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path) const;
    template <class Stub>
    std::optional<Hash> hashOf(const GxDbObjectId& subId, const KvVector<GxDbObjectId>* path,
                               Stub stubOf) const;

    Chains chainsOf(const ItemKeys& keys, Hash hash) const;
    template <class Visit>
    void forEachMarker(const ItemKeys& keys, Visit visit) const;

    // Returns the first entry of the chains that passes, in the order of the run. Returns null if there is
    // none.
    template <class Passes>
    const Entry* firstThat(Passes passes, Chains chains) const {
        if (chains.isEmpty())
            return nullptr;
        for (Number number = chains.first(); number != kNone; number = chains.next(mItems)) {
            if (passes(mItems[number].entry))
                return &mItems[number].entry;
        }
        return nullptr;
    }

    void addSubIds(const std::vector<const selected_entity*>& records);
    Hash addIds(const GxDbObjectId& subId, const KvVector<GxDbObjectId>& path);
    void add(Entry entry, const selected_entity& record);
    void noteMarker(long marker) noexcept;
    void link(Number number, std::uint32_t key);

    // Takes an item for which isItem(item) is true out of its chain. Looks for the item in the chain of the
    // stubs of the record's ids, and then in the chain of the stubs that represent these ids. Returns the
    // number of the item, or kNone if there is no such item.
    template <class IsItem>
    Number unlink(const selected_entity& record, IsItem isItem) noexcept;
    template <class IsItem>
    Number unlink(std::uint32_t key, IsItem isItem) noexcept;

    const GxDbStub* mMainStub;
    Entry mLast; // the last entry of the run
    Keys mKeys;
    EqualIds mIds; // the sub ids of all items, and, if mKeys is Keys::kMarkerAndPath, the ids of their paths
    std::vector<Item> mItems;
    std::size_t mErased = 0;
    HashTable<std::uint32_t, Chain> mChains;
    std::array<long, kMostMarkers> mMarkers{}; // the different markers of all items
    std::size_t mMarkerCount = 0;
    bool mHasManyMarkers = false;
    RunIndex* mNext = nullptr; // the next index in a list of LongRuns
};

} // namespace kvdetail
