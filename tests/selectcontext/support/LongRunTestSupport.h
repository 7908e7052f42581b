// A run: many items of one main id. Makes sets with runs, and finds their items by a walk through the index.
#pragma once

#include "platform/KvGeometry.h"
#include "platform/inmemory/InMemoryDatabase.h"
#include "tests/selectcontext/support/EditTestSupport.h"
#include "tests/support/Infos.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace kvtest {

constexpr unsigned long kRunMain = 500;
constexpr unsigned long kTwin = 5000; // id(n) and id(n + kTwin) are stubs of one object after makeTwins()

// ---- kinds of runs

struct RunKind {
    std::string name;
    unsigned long subs;
    std::vector<long> markers;
    bool hasTwins; // if true, some sub ids and path ids are id(n + kTwin)
};

inline std::ostream& operator<<(std::ostream& out, const RunKind& kind) {
    return out << kind.name;
}

inline const std::vector<RunKind>& runKinds() {
    static const std::vector<RunKind> kinds{
        {"DifferentSubIds", 1000, {-1}, false},
        {"FewMarkers", 60, {-1, 0, 5}, false},
        {"ManyMarkers", 30, {1, 2, -1, 3, 0, 4, 5, 6}, false},
        {"FewSubIds", 3, {-1, 0, 1, 2, 3}, false},
        {"SecondStubs", 40, {0, -1, 7}, true},
    };
    return kinds;
}

inline std::string nameOfKind(const ::testing::TestParamInfo<RunKind>& kind) {
    return kind.param.name;
}

inline void makeTwins() {
    for (unsigned long n = 1; n <= 60; ++n)
        kvinmemory::makeEqual(id(n), id(n + kTwin));
}

// Draws random items of one kind of run. Some of the items may be equal.
class RunItems {
public:
    RunItems(const RunKind& kind, unsigned seed) : mKind(kind), mRandom(seed) {}

    Item next() {
        Item item{kRunMain, stubOf(1 + draw(mKind.subs)), mKind.markers[draw(mKind.markers.size())]};
        const std::size_t length = draw(3);
        for (std::size_t i = 0; i < length; ++i)
            item.path[i] = stubOf(1 + draw(2));
        item.moved = static_cast<double>(draw(3)) * 1.5;
        return item;
    }

    Items next(std::size_t count) {
        Items items;
        while (items.size() < count)
            items.push_back(next());
        return items;
    }

    std::size_t draw(std::size_t below) { return mRandom() % below; }

private:
    unsigned long stubOf(unsigned long n) { return mKind.hasTwins && draw(2) == 0 ? n + kTwin : n; }

    const RunKind& mKind;
    std::mt19937 mRandom;
};

// Returns the items of `run`, and two items before and two behind them, with a lower and a higher main id.
inline Items between(const Items& run) {
    Items all{{kRunMain - 1, 1}, {kRunMain + 1, 1}};
    all.insert(all.end(), run.begin(), run.end());
    all.push_back({kRunMain - 1, 2});
    all.push_back({kRunMain + 1, 2});
    return all;
}

// Returns `count` items of a run with the sub ids first, first + 1, ...
inline Items plainRun(unsigned long count, unsigned long first = 1) {
    Items run;
    for (unsigned long n = first; n < first + count; ++n)
        run.push_back({kRunMain, n});
    return run;
}

// ---- items as plain values

inline unsigned long objectOf(unsigned long n) {
    return n > kTwin ? n - kTwin : n;
}

inline bool hasEqualKeys(const Item& a, const Item& b) {
    return objectOf(a.main) == objectOf(b.main) && objectOf(a.sub) == objectOf(b.sub) &&
           isGsMarkEqual(a.marker, b.marker) &&
           std::equal(
               std::begin(a.path), std::end(a.path), std::begin(b.path),
               [](unsigned long one, unsigned long other) { return objectOf(one) == objectOf(other); });
}

// Returns whether a unique set refuses one of the items if it has the other.
inline bool isDuplicate(const Item& a, const Item& b) {
    return hasEqualKeys(a, b) && a.moved == b.moved;
}

inline bool has(const Items& items, const Item& wanted) {
    return std::any_of(items.begin(), items.end(),
                       [&](const Item& held) { return isDuplicate(held, wanted); });
}

// Returns the items of a unique set that has the items `held`, after each item of `added` was selected.
inline Items selected(Items held, const Items& added) {
    for (const Item& item : added) {
        if (!has(held, item))
            held.push_back(item);
    }
    return held;
}

// Removes the first item that has the main id, sub id and marker of `gone`. Markers of 0 and -1 differ.
// Returns false if there is no such item.
inline bool removeExact(Items& items, const Item& gone) {
    const auto found = std::find_if(items.begin(), items.end(), [&](const Item& held) {
        return objectOf(held.main) == objectOf(gone.main) && objectOf(held.sub) == objectOf(gone.sub) &&
               held.marker == gone.marker;
    });
    if (found == items.end())
        return false;
    items.erase(found);
    return true;
}

// ---- look-ups

using IdPath = KvVector<GxDbObjectId>;

inline IdPath pathOf(const Item& item) {
    IdPath path;
    for (const unsigned long n : item.path) {
        if (n != 0)
            append(path, id(n));
    }
    return path;
}

struct InfoFreer {
    void operator()(GxapSelectedEntInfo* info) const { freeInfo(info); }
};

// The keys that a look-up takes in addition to the main id.
struct LookUpKeys {
    GxDbObjectId subId;
    std::optional<long> marker;
    const IdPath* path = nullptr;
    const GxapSelectedEntInfo* info = nullptr;
    bool hasInfo = false; // the look-up takes an info; `info` may be null
};

inline bool isMoved(const GxapSelectedEntInfo* wanted, const GxapSelectedEntInfo* held) {
    const GxGeMatrix3d* const one = wanted ? wanted->getBTRMatPtr() : nullptr;
    const GxGeMatrix3d* const other = held ? held->getBTRMatPtr() : nullptr;
    return one && other ? one->isEqualTo(*other, GxGeContext::gTol) : one == other;
}

inline bool isWanted(const selected_entity& record, const GxDbObjectId& mainId, const LookUpKeys& keys) {
    return record.mainEntId == mainId && record.subEntId == keys.subId &&
           (!keys.marker || isGsMarkEqual(record.gsMarker, *keys.marker)) &&
           (!keys.path || record.nestedEntFullPath == *keys.path) &&
           (!keys.path || !keys.hasInfo || isMoved(keys.info, record.selectedEntityInfo));
}

// Returns the record of an entry. Returns null if the entry's slot is not in the store, is free, or has no
// record.
inline const selected_entity* heldRecord(const SSetData& data, SSetData::DataMap::const_iterator entry) {
    const Store::Slot* const slot = slotOf(entry);
    return pageOf(*data.entities, slot) && !slot->free ? slot->value : nullptr;
}

inline SSetData::DataMap::const_iterator walkTo(const GxapSelectSet& set, const GxDbObjectId& mainId,
                                                const LookUpKeys& keys) {
    const SSetData& data = *set.sharedData;
    auto entry = data.dataMap.lower_bound(mainId);
    for (; entry != data.dataMap.end() && entry->first == mainId; ++entry) {
        const selected_entity* const record = heldRecord(data, entry);
        if (record && isWanted(*record, mainId, keys))
            return entry;
    }
    return data.dataMap.end();
}

// Calls each form of findInMap() that takes a sub id. Returns whether each form finds the entry that a walk
// finds.
inline ::testing::AssertionResult isFoundAsByAWalk(const GxapSelectSet& set, const Item& item) {
    const GxDbObjectId mainId = id(item.main), subId = id(item.sub);
    const IdPath path = pathOf(item);
    const std::unique_ptr<GxapSelectedEntInfo, InfoFreer> info(item.moved != 0 ? makeInfoMovedBy(item.moved)
                                                                               : nullptr);
    const long marker = item.marker;
    const std::pair<SSetData::DataMap::const_iterator, LookUpKeys> all[] = {
        {set.findInMap(mainId, subId), {subId, {}}},
        {set.findInMap(mainId, subId, marker), {subId, marker}},
        {set.findInMap(mainId, subId, &path), {subId, {}, &path}},
        {set.findInMap(mainId, subId, marker, &path), {subId, marker, &path}},
        {set.findInMap(mainId, subId, marker, &path, info.get()), {subId, marker, &path, info.get(), true}},
        {set.findInMap(mainId, subId, marker, &path, nullptr), {subId, marker, &path, nullptr, true}},
        {set.findInMap(mainId, subId, marker, nullptr, info.get()),
         {subId, marker, nullptr, info.get(), true}},
    };
    for (std::size_t i = 0; i < std::size(all); ++i) {
        if (all[i].first != walkTo(set, mainId, all[i].second))
            return ::testing::AssertionFailure() << item << " in form " << i;
    }
    return ::testing::AssertionSuccess();
}

inline ::testing::AssertionResult areFoundAsByAWalk(const GxapSelectSet& set, const Items& wanted) {
    for (const Item& item : wanted) {
        const ::testing::AssertionResult found = isFoundAsByAWalk(set, item);
        if (!found)
            return found;
    }
    return ::testing::AssertionSuccess();
}

// Makes the set build both hashes of the run: one with the path as key, and one without.
inline void indexRun(const GxapSelectSet& set, unsigned long main = kRunMain) {
    const IdPath none = idVector({9999});
    set.findInMap(id(main), id(9999), 0l);
    set.findInMap(id(main), id(9999), 0l, &none);
}

inline long idComparisons() {
    return kvinmemory::idEqualityCalls() + kvinmemory::idOrderCalls();
}

} // namespace kvtest
