// Appending many records.

#include "selectcontext/BulkAppend.h"
#include "base/KvShortcuts.h"
#include "selectcontext/OwnedInfo.h"
#include "selectcontext/SetShortcuts.h"
#include "selectcontext/StubOrder.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace kvdetail {

namespace {

std::uintptr_t stubOf(const selected_entity& record) noexcept {
    return reinterpret_cast<std::uintptr_t>(record.mainEntId.stub());
}

GxDbObjectId idOf(std::uintptr_t stub) noexcept {
    return GxDbObjectId(reinterpret_cast<GxDbStub*>(stub));
}

ItemKeys keysOf(const selected_entity& record) noexcept {
    return {record.mainEntId, record.subEntId, record.gsMarker, &record.nestedEntFullPath};
}

// Whether the first records come in an order that guessing the next entry of the index does not follow.
bool beginsUnordered(const Store& store) noexcept {
    constexpr unsigned kSample = 64;
    constexpr unsigned kFewestDescents = kSample / 8;
    std::uintptr_t last = 0;
    unsigned seen = 0;
    unsigned descents = 0;
    anyOccupied(store, [&](const Store::Slot* slot) {
        if (!slot->value)
            return false;
        const std::uintptr_t stub = stubOf(*slot->value);
        if (stub < last)
            ++descents;
        last = stub;
        return ++seen == kSample;
    });
    return descents >= kFewestDescents;
}

// The entries of an id, given that it is not before `place`. Those of the ids in between are walked over,
// where they are few: they lie one behind the other in the index of a copy.
Run runFrom(const DataMap& map, DataMap::const_iterator place, const GxDbObjectId& id) {
    constexpr unsigned kMostSteps = 32;
    unsigned steps = 0;
    while (steps < kMostSteps && place != map.end() && place->first < id) {
        ++place;
        ++steps;
    }
    if (steps == kMostSteps)
        place = map.lower_bound(id);
    return {place, place != map.end() && place->first == id};
}

} // namespace

bool BulkAppend::isWorthIt(const SSetData& data, const SSetData& added) noexcept {
    constexpr std::size_t kFewestRecords = 48;
    constexpr std::size_t kMostEntriesPerRecord =
        16; // beyond, a hash finds an item before a walk has passed it
    return kHasBulkAppend && data.entities && added.entityCount >= kFewestRecords &&
           data.dataMap.size() / kMostEntriesPerRecord <= added.entityCount &&
           beginsUnordered(*added.entities);
}

BulkAppend::BulkAppend(SSetData& data, const SSetData& added) : mData(data) {
    mCandidates.reserve(added.entityCount);
    forEachOccupied(*added.entities, [this](const Store::Slot* slot) {
        if (slot->value && !slot->value->mainEntId.isNull())
            mCandidates.push_back({slot->value, mData.dataMap.end()});
    });
}

BulkAppend::~BulkAppend() {
    for (const Candidate& candidate : mCandidates) {
        if (candidate.entry != mData.dataMap.end() && candidate.entry->second == 0)
            mData.dataMap.erase(candidate.entry);
    }
}

// Records come in no order: those ahead are drawn into the caches, in two steps.
bool BulkAppend::findPlaces() {
    constexpr std::ptrdiff_t kCandidateAhead = 16;
    constexpr std::ptrdiff_t kRecordAhead = 8;
    SetShortcuts::of(mData).dropHash(); // it would have to be told of every entry
    const Arrivals arrivals = sortedArrivals();
    const Arrival* const end = arrivals.data() + arrivals.size();
    DataMap::const_iterator place = mData.dataMap.begin();
    for (const Arrival* first = arrivals.data(); first != end;) {
        const GxDbObjectId id = idOf(first->stub);
        const Arrival* last = first;
        for (; last != end && last->stub == first->stub; ++last) {
            if (end - last <= kCandidateAhead)
                continue;
            __builtin_prefetch(&mCandidates[last[kCandidateAhead].number], 1);
            __builtin_prefetch(mCandidates[last[kRecordAhead].number].record);
        }
        if (last != end && !(id < idOf(last->stub)))
            return false;
        place = enterAllOf(first, last, runFrom(mData.dataMap, place, id));
        first = last;
    }
    return true;
}

void BulkAppend::append() {
    constexpr std::size_t kAhead = 8;
    for (std::size_t i = 0; i < mCandidates.size(); ++i) {
        if (i + kAhead < mCandidates.size() && mCandidates[i + kAhead].entry != mData.dataMap.end())
            __builtin_prefetch(&*mCandidates[i + kAhead].entry, 1);
        const auto& [source, entry] = mCandidates[i];
        if (entry == mData.dataMap.end())
            continue;
        OwnedInfo info = copyInfo(source->selectedEntityInfo);
        auto record = newRecord(mData);
        setKeys(*record, keysOf(*source), std::move(info));
        entry->second = slotAddress(mData.entities->append(record.get()));
        record.release();
        ++mData.entityCount;
    }
}

// By id, as far as addresses tell, and those of one id in store order.
BulkAppend::Arrivals BulkAppend::sortedArrivals() const {
    Arrivals arrivals;
    arrivals.reserve(mCandidates.size());
    for (const Candidate& candidate : mCandidates)
        arrivals.push_back({stubOf(*candidate.record), arrivals.size()});
    sortByStub(arrivals);
    return arrivals;
}

// Gives those of one id that are new their entries, and returns the place behind the entries of the id.
DataMap::const_iterator BulkAppend::enterAllOf(const Arrival* first, const Arrival* last, Run run) {
    DataMap::const_iterator behind = run.first;
    while (run.isHeld && isOfId(mData.dataMap, behind, idOf(first->stub)))
        ++behind;
    for (const Arrival* arrival = first; arrival != last; ++arrival) {
        Candidate& candidate = mCandidates[arrival->number];
        const ItemKeys keys = keysOf(*candidate.record);
        const GxGeMatrix3d* const matrix = matrixOf(candidate.record->selectedEntityInfo);
        const bool isRefused =
            mData.unique && (isAmong(first, arrival, keys, matrix) ||
                             findItem(mData, keys, run, matrix).entry != mData.dataMap.end());
        if (!isRefused)
            candidate.entry = mData.dataMap.emplace_hint(behind, keys.mainId, 0);
    }
    return behind;
}

// One of these, which has an entry but no slot yet, is the item.
bool BulkAppend::isAmong(const Arrival* first, const Arrival* last, const ItemKeys& keys,
                         const GxGeMatrix3d* matrix) const {
    return std::any_of(first, last, [&](const Arrival& arrival) {
        const Candidate& candidate = mCandidates[arrival.number];
        return candidate.entry != mData.dataMap.end() && isItem(*candidate.record, keys, matrix);
    });
}

} // namespace kvdetail
